// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/receiver_launcher.h"

#include <sys/stat.h>
#include <sysexits.h>

#include <cstdio>
#include <utility>

#include "receiver/launcher/control_socket.h"
#include "receiver/launcher/fail.h"
#include "receiver/launcher/readiness_watch.h"
#include "receiver/launcher/receiver_files.h"
#include "receiver/launcher/receiver_process.h"
#include "receiver/launcher/resources.h"
#include "receiver/token.h"

namespace ombrel {

namespace {

constexpr std::chrono::milliseconds kControlTimeout{2000};

}  // namespace

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
    for (const std::string& remark : config.remarks)
        logLine("ombrel-receiver: " + remark);
    return std::fputs(renderReceiverConfig(config).c_str(), stdout) >= 0 ? EX_OK : EX_IOERR;
}

int checkReceiver(const LauncherPlaces& places, const ReceiverConfig& config) {
    const ReceiverFiles files(places.runFolder, config.name);
    const bool answers = answersOnControlSocket(files.control, kControlTimeout);
    return answers && listensOnAll(readPid(files.pid), config) ? 0 : 1;
}

}  // namespace ombrel
