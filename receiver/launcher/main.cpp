// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include <fcntl.h>
#include <sysexits.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/veskfirewall.h"
#include "receiver/fixed_places.h"
#include "receiver/launcher/receiver_launcher.h"
#include "receiver/launcher/receiver_settings.h"
#include "receiver/visible_log.h"

namespace {

constexpr const char* kUsage =
    "usage: ombrel-receiver bsd|ietf|local|custrule [--notify-fd=N | --print-config | --check]\n"
    "Receives RFC 3164 messages (bsd), RFC 5424 messages (ietf), what this machine logs itself (local), or what "
    "the\n"
    "receiving rules say (custrule), as the settings say: writes a configuration for syslog-ng, checks it and "
    "runs\n"
    "syslog-ng. SIGTERM and SIGINT: hands over to the log writer what it holds, 9 s at most, and ends. SIGHUP: "
    "reads\n"
    "the settings again; a change that cannot be used changes nothing. A rule that cannot be served is left out,\n"
    "with a line in the system log; one whose port is taken, or whose certificate cannot be used, is tried again\n"
    "every 10 s.\n"
    "  --notify-fd=N   write a line break to descriptor N when messages are taken (with $NOTIFY_SOCKET: READY=1\n"
    "                  there instead)\n"
    "  --print-config  print the configuration instead (without the token)\n"
    "  --check         exit 0 when the receiver is running and has bound its ports, 1 otherwise\n"
    "Exit codes: 0 ended by a signal, 64 wrong options, 69 the port or /dev/log is taken, 70 out of memory,\n"
    "71 syslog-ng cannot be run, 73 the configuration cannot be written, 75 syslog-ng ended by itself, 77 the "
    "token\n"
    "cannot be used, 78 wrong settings\n";

enum class Action { kRun, kPrint, kCheck };

struct Arguments {
    Action action = Action::kRun;
    int notifyFd = -1;
};

// The file descriptor is for this program alone. Whoever sets $NOTIFY_SOCKET need not pass one: it is not used
// then.
bool readNotifyFd(std::string_view text, int& fd) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), fd);
    if (error != std::errc() || end != text.data() + text.size() || fd < 3) return false;
    return std::getenv("NOTIFY_SOCKET") != nullptr || ::fcntl(fd, F_SETFD, FD_CLOEXEC) == 0;
}

bool readOption(std::string_view option, Arguments& arguments) {
    constexpr std::string_view kNotify = "--notify-fd=";
    if (option == "--print-config") arguments.action = Action::kPrint;
    if (option == "--check") arguments.action = Action::kCheck;
    return arguments.action != Action::kRun ||
           (option.starts_with(kNotify) && readNotifyFd(option.substr(kNotify.size()), arguments.notifyFd));
}

// Programs of the package lie side by side.
std::string besideThis(const char* name) {
    std::error_code error;
    const auto own = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::string() : (own.parent_path() / name).string();
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc == 2 && std::string_view(argv[1]) == "--help")
        return std::fputs(kUsage, stdout) >= 0 ? EX_OK : EX_IOERR;
    Arguments arguments;
    if (argc < 2 || argc > 3 || !ombrel::isReceiverName(argv[1]) ||
        (argc == 3 && !readOption(argv[2], arguments))) {
        ombrel::logLine(
            "ombrel-receiver: expected \"bsd\", \"ietf\", \"local\" or \"custrule\" and at most one option; "
            "--help says "
            "more");
        return EX_USAGE;
    }
    std::string error;
    const ombrel::SettingsPlaces settings{ombrel::kSettingsFile, ombrel::kRuleFile, ombrel::kEnabledJobsFile};
    auto config = ombrel::receiverConfig(argv[1], settings, error);
    if (!config) {
        ombrel::logLine("ombrel-receiver: " + error);
        return EX_CONFIG;
    }
    config->writerPort = ombrel::kWriterPort;
    if (arguments.action == Action::kPrint) return ombrel::printReceiverConfig(*config);
    // Whoever changes a rule declares its port and restarts this job, and leaves the firewall to it.
    const bool opensPorts = config->name == "custrule";
    const ombrel::LauncherPlaces places{.settings = settings,
                                        .runFolder = ombrel::kRunFolder,
                                        .logWriter = besideThis("ombrel-logwriter"),
                                        .notifyFd = arguments.notifyFd,
                                        .openPorts = opensPorts ? &VESKFwRuleHup : nullptr};
    return arguments.action == Action::kCheck ? ombrel::checkReceiver(places, *config)
                                              : ombrel::launchReceiver(places, *config);
} catch (const std::exception& failure) {
    ombrel::logLine(std::string("ombrel-receiver ends: ") + failure.what());
    return EX_SOFTWARE;
}
