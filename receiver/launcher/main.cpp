// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include <sysexits.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <string_view>

#include "receiver/fixed_places.h"
#include "receiver/launcher/receiver_launcher.h"
#include "receiver/visible_log.h"

namespace {

constexpr const char* kUsage =
    "usage: ombrel-receiver bsd [--print-config | --check]\n"
    "Receives RFC 3164 messages on the port of the settings, UDP and TCP, or TLS: writes a configuration for\n"
    "syslog-ng, checks it and runs syslog-ng. SIGTERM and SIGINT: hands over to the log writer what it holds,\n"
    "9 s at most, and ends. SIGHUP: reads the settings again; a change that cannot be used changes nothing.\n"
    "  --print-config  print the configuration instead (without the token)\n"
    "  --check         exit 0 when the receiver is running and has bound its ports, 1 otherwise\n"
    "Exit codes: 0 ended by a signal, 64 wrong options, 69 the port is taken, 70 out of memory, 71 syslog-ng\n"
    "cannot be run, 73 the configuration cannot be written, 75 syslog-ng ended by itself, 77 the token cannot\n"
    "be used, 78 wrong settings\n";

// Programs of the package lie side by side.
std::string besideThis(const char* name) {
    std::error_code error;
    const auto own = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::string() : (own.parent_path() / name).string();
}

}  // namespace

int main(int argc, char** argv) try {
    const std::string_view option = argc == 3 ? argv[2] : "";
    if (argc == 2 && std::string_view(argv[1]) == "--help")
        return std::fputs(kUsage, stdout) >= 0 ? EX_OK : EX_IOERR;
    if (argc < 2 || argc > 3 || std::string_view(argv[1]) != "bsd" ||
        (argc == 3 && option != "--print-config" && option != "--check")) {
        ombrel::logLine(
            "ombrel-receiver: expected \"bsd\", alone or with --print-config or --check; --help says more");
        return EX_USAGE;
    }
    std::string error;
    auto config = ombrel::bsdReceiverConfig(ombrel::kSettingsFile, error);
    if (!config) {
        ombrel::logLine("ombrel-receiver: " + error);
        return EX_CONFIG;
    }
    config->writerPort = ombrel::kWriterPort;
    if (option == "--print-config") return ombrel::printReceiverConfig(*config);
    const ombrel::LauncherPlaces places{.settingsFile = ombrel::kSettingsFile,
                                        .runFolder = ombrel::kRunFolder,
                                        .logWriter = besideThis("ombrel-logwriter")};
    return option == "--check" ? ombrel::checkReceiver(places, *config) : ombrel::launchReceiver(places, *config);
} catch (const std::exception& failure) {
    ombrel::logLine(std::string("ombrel-receiver ends: ") + failure.what());
    return EX_SOFTWARE;
}
