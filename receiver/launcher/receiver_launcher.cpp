// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/receiver_launcher.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include "linux/common/fd.h"
#include "ombrel/utils.h"
#include "receiver/launcher/control_socket.h"
#include "receiver/launcher/ports.h"
#include "receiver/token.h"
#include "receiver/visible_log.h"

namespace ombrel {

namespace {

constexpr int kSyntaxCheckMs = 20'000;
constexpr std::chrono::milliseconds kControlTimeout{2000};

struct Places {
    std::string folder;
    std::string configuration;
    std::string control;
    std::string persist;
    std::string pid;
};

Places placesOf(const LauncherPlaces& places, const std::string& name) {
    const std::string folder = places.runFolder + "/" + name;
    return {folder, folder + "/syslog-ng.conf", folder + "/control", folder + "/persist", folder + "/pid"};
}

int fail(int code, const std::string& text) {
    logLine("ombrel-receiver: " + text);
    return code;
}

int failErrno(int code, const std::string& text) {
    return fail(code, text + ": " + std::strerror(errno));
}

bool writeConfiguration(const std::string& path, const std::string& text) {
    const std::string temporary = path + ".new";
    (void)::unlink(temporary.c_str());  // left by a start that was killed
    const Fd file(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    return file && ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
           ::rename(temporary.c_str(), path.c_str()) == 0;
}

std::vector<char*> argumentsOf(std::vector<std::string>& words) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    return arguments;
}

// The exit status of the program, or -1 with errno. Waits a bounded time; what it says goes to our log.
int runBounded(std::vector<std::string> words, int milliseconds) {
    const std::vector<char*> arguments = argumentsOf(words);
    pid_t pid = -1;
    if (const int error = ::posix_spawn(&pid, arguments[0], nullptr, nullptr, arguments.data(), environ)) {
        errno = error;
        return -1;
    }
    const Fd process(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    pollfd one{process.get(), POLLIN, 0};
    // Where there is no pidfd, waitpid alone waits.
    const bool ended = !process || ::poll(&one, 1, milliseconds) == 1;
    if (!ended) (void)::kill(pid, SIGKILL);  // it is waited for in any case
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    if (!ended) {
        errno = ETIMEDOUT;
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::vector<std::string> syslogNgCommand(const LauncherPlaces& places, const Places& own) {
    return {places.syslogNg,
            "--foreground",
            "--stderr",
            "--no-caps",
            "--cfgfile=" + own.configuration,
            "--control=" + own.control,
            "--persist-file=" + own.persist,
            "--pidfile=" + own.pid};
}

// Clear words before syslog-ng's own: it would only say that it could not start.
int checkResources(const ReceiverConfig& config) {
    for (const Listener& listener : config.listeners) {
        if (const int error = tryToBind(listener, config.ipv6)) {
            return fail(EX_UNAVAILABLE, "cannot use port " + std::to_string(listener.port) +
                                            (listener.transport == Transport::kUdp ? "/udp" : "/tcp") +
                                            " (server_port): " + std::strerror(error));
        }
        if (listener.transport != Transport::kTls) continue;
        for (const auto& [key, path] :
             {std::pair("server_ca_key", &config.keyFile), std::pair("server_ca_file", &config.certificateFile)}) {
            if (::access(path->c_str(), R_OK) != 0) {
                return failErrno(EX_CONFIG, std::string("cannot read ") + key + "=\"" + *path + "\"");
            }
        }
    }
    return EX_OK;
}

void fitToMachine(ReceiverConfig& config) {
    config.ipv6 = canUseIpv6();
    config.receiveBuffer = largestReceiveBuffer();
}

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
    if (const int code = checkResources(config)) return code;
    const auto token = readOrMakeToken(places.runFolder);
    if (!token) {
        return failErrno(EX_NOPERM,
                         "cannot use " + places.runFolder + "/token, which must be readable by its owner alone");
    }
    config.token = *token;
    const Places own = placesOf(places, config.name);
    if (::mkdir(own.folder.c_str(), 0700) != 0 && errno != EEXIST) {
        return failErrno(EX_CANTCREAT, "cannot make " + own.folder);
    }
    config.queueFolder = own.folder;
    if (!writeConfiguration(own.configuration, renderReceiverConfig(config))) {
        return failErrno(EX_CANTCREAT, "cannot write " + own.configuration);
    }
    std::vector<std::string> check = syslogNgCommand(places, own);
    check.emplace_back("--syntax-only");
    const int status = runBounded(std::move(check), kSyntaxCheckMs);
    if (status < 0) return failErrno(EX_OSERR, "cannot run " + places.syslogNg);
    if (status != 0) return fail(EX_CONFIG, places.syslogNg + " refuses " + own.configuration);
    std::vector<std::string> command = syslogNgCommand(places, own);
    ::execv(places.syslogNg.c_str(), argumentsOf(command).data());
    return failErrno(EX_OSERR, "cannot run " + places.syslogNg);
}

int printReceiverConfig(ReceiverConfig config) {
    fitToMachine(config);
    config.token = "(token)";
    return std::fputs(renderReceiverConfig(config).c_str(), stdout) >= 0 ? EX_OK : EX_IOERR;
}

int checkReceiver(const LauncherPlaces& places, const ReceiverConfig& config) {
    if (!answersOnControlSocket(placesOf(places, config.name).control, kControlTimeout)) return 1;
    for (const Listener& listener : config.listeners) {
        if (!isBound(listener)) return 1;
    }
    return 0;
}

}  // namespace ombrel
