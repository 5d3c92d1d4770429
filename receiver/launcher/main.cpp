// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include <sysexits.h>

#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

#include "receiver/fixed_places.h"
#include "receiver/launcher/receiver_launcher.h"
#include "receiver/visible_log.h"

namespace {

constexpr const char* kUsage =
    "usage: ombrel-receiver bsd [--print-config | --check]\n"
    "Receives RFC 3164 messages on the port of the settings, UDP and TCP, or TLS: writes a configuration for\n"
    "syslog-ng, checks it and becomes syslog-ng in the foreground.\n"
    "  --print-config  print the configuration instead (without the token)\n"
    "  --check         exit 0 when the receiver is running and has bound its ports, 1 otherwise\n"
    "Exit codes of a start that fails: 64 wrong options, 69 the port is taken, 70 out of memory,\n"
    "71 syslog-ng cannot be run, 73 the configuration cannot be written, 77 the token cannot be used,\n"
    "78 wrong settings\n";

}  // namespace

int main(int argc, char** argv) try {
    const std::string_view option = argc == 3 ? argv[2] : "";
    if (argc == 2 && std::string_view(argv[1]) == "--help")
        return std::fputs(kUsage, stdout) >= 0 ? EX_OK : EX_IOERR;
    if (argc < 2 || argc > 3 || std::string_view(argv[1]) != "bsd" ||
        (argc == 3 && option != "--print-config" && option != "--check")) {
        (void)std::fputs(kUsage, stderr);
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
    const ombrel::LauncherPlaces places{ombrel::kSettingsFile, ombrel::kRunFolder};
    return option == "--check" ? ombrel::checkReceiver(places, *config) : ombrel::launchReceiver(places, *config);
} catch (const std::exception& failure) {
    ombrel::logLine(std::string("ombrel-receiver ends: ") + failure.what());
    return EX_SOFTWARE;
}
