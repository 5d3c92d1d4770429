// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/receiver_launcher.h"

#include <sys/stat.h>
#include <sysexits.h>

#include <cstdio>
#include <utility>

#include "ombrel/utils.h"
#include "receiver/launcher/control_socket.h"
#include "receiver/launcher/fail.h"
#include "receiver/launcher/ports.h"
#include "receiver/launcher/receiver_files.h"
#include "receiver/launcher/receiver_process.h"
#include "receiver/token.h"

namespace ombrel {

namespace {

constexpr std::chrono::milliseconds kControlTimeout{2000};

}  // namespace

std::optional<ReceiverConfig> bsdReceiverConfig(const std::string& settingsFile, std::string& error) {
    _SYSLOG_CONF_SETTINGS_tag record;
    if (SyslogServerConfGet(settingsFile, record) != 0) {
        error =
            "cannot read the receiver settings in " + settingsFile + ": the file or one of its keys is missing";
        return std::nullopt;
    }
    if (record.server_port < 1 || record.server_port > 65535) {
        error = "server_port=\"" + std::to_string(record.server_port) + "\" in " + settingsFile +
                " is no port (1 to 65535)";
        return std::nullopt;
    }
    ReceiverConfig config;
    config.name = "bsd";
    const auto port = static_cast<std::uint16_t>(record.server_port);
    if (record.server_ssl == 0) {
        config.listeners = {{Transport::kUdp, port}, {Transport::kTcp, port}};
        return config;
    }
    config.listeners = {{Transport::kTls, port}};
    config.keyFile = record.server_ca_key;
    config.certificateFile = record.server_ca_file;
    for (const auto& [key, path] :
         {std::pair("server_ca_key", &config.keyFile), std::pair("server_ca_file", &config.certificateFile)}) {
        if (!isConfigurablePath(*path)) {
            error = std::string(key) + "=\"" + *path + "\" in " + settingsFile +
                    " must be an absolute path without quotes, backslashes and control characters";
            return std::nullopt;
        }
    }
    return config;
}

int launchReceiver(const LauncherPlaces& places, ReceiverConfig config) {
    fitToMachine(config);
    const auto token = readOrMakeToken(places.runFolder);
    if (!token) return fail(EX_NOPERM, tokenTrouble(places.runFolder));
    config.token = *token;
    const ReceiverFiles files(places.runFolder, config.name);
    if (::mkdir(files.folder.c_str(), 0700) != 0 && errno != EEXIST) {
        return failErrno(EX_CANTCREAT, "cannot make " + files.folder);
    }
    config.queueFolder = files.folder;
    return ReceiverProcess(places, files, std::move(config)).run();
}

int printReceiverConfig(ReceiverConfig config) {
    fitToMachine(config);
    config.token = "(token)";
    return std::fputs(renderReceiverConfig(config).c_str(), stdout) >= 0 ? EX_OK : EX_IOERR;
}

int checkReceiver(const LauncherPlaces& places, const ReceiverConfig& config) {
    if (!answersOnControlSocket(ReceiverFiles(places.runFolder, config.name).control, kControlTimeout)) return 1;
    for (const Listener& listener : config.listeners) {
        if (!isBound(listener)) return 1;
    }
    return 0;
}

}  // namespace ombrel
