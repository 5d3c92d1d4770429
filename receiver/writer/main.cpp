// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include <getopt.h>
#include <sysexits.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include "receiver/fixed_places.h"
#include "receiver/visible_log.h"
#include "receiver/writer/import_command.h"
#include "receiver/writer/log_writer.h"

namespace {

constexpr const char* kUsage =
    "usage: ombrel-logwriter [--listen=127.0.0.1:PORT] [--notify-fd=N]\n"
    "       ombrel-logwriter --import FILE [FILE...] [--year=YYYY] [--host=NAME] [--json]\n"
    "\n"
    "Without --import: takes batches of messages from the receivers and commits them to the working\n"
    "databases that the settings name, until SIGTERM.\n"
    "  --listen=127.0.0.1:PORT  the port of the receivers (5615)\n"
    "  --notify-fd=N            write a line break to descriptor N when batches are taken (with\n"
    "                           $NOTIFY_SOCKET: READY=1 there instead)\n"
    "With --import: stores the messages of files, one a line (\"-\" is standard input), in the same place.\n"
    "  --year=YYYY              the year of the first line whose time has none (guessed from each file)\n"
    "  --host=NAME              the host of lines that name none (\"localhost\")\n"
    "  --json                   say what became of each file in a line of JSON on standard output, with the\n"
    "                           members file, ok, rows, split_lines, duration_seconds and error (null when ok)\n"
    "Exit codes: 0 done, 64 wrong options, 66 the file cannot be opened, 69 the port is taken, 70 out of memory,\n"
    "71 no signals, 72 the layout file is missing, 74 cannot read or store, 77 the token cannot be used,\n"
    "78 wrong settings. Of several files that of the first that failed; the others are imported all the same.\n";

struct Arguments {
    ombrel::LogWriterOptions writer{ombrel::kSettingsFile, ombrel::kSchemaFile, ombrel::kRunFolder,
                                    ombrel::kWriterPort, -1};
    std::optional<ombrel::ImportOptions> import{};
    std::optional<int> year{};
    std::optional<std::string> host{};
    bool json = false;
    bool daemonOption = false;
    bool help = false;
};

template <typename Number>
bool readNumber(std::string_view text, Number least, Number most, Number& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && value >= least && value <= most;
}

bool readListen(std::string_view text, std::uint16_t& port) {
    constexpr std::string_view kLoopback = "127.0.0.1:";
    return text.starts_with(kLoopback) && readNumber<std::uint16_t>(text.substr(kLoopback.size()), 1, 65535, port);
}

// Null when the option is fine.
const char* takeOption(int option, const char* value, Arguments& arguments) {
    switch (option) {
        case 'l':
            arguments.daemonOption = true;
            return readListen(value, arguments.writer.port) ? nullptr : "--listen takes 127.0.0.1:PORT";
        case 'n':
            arguments.daemonOption = true;
            return readNumber(value, 3, 1 << 20, arguments.writer.notifyFd) ? nullptr
                                                                            : "--notify-fd takes a number from 3";
        case 'i':
            if (!arguments.import) arguments.import.emplace();
            arguments.import->files.emplace_back(value);
            return *value != '\0' ? nullptr : "--import takes a file";
        case 'y':
            return readNumber(value, 1970, 9999, arguments.year.emplace()) ? nullptr
                                                                           : "--year takes a year such as 2024";
        case 'H':
            arguments.host = value;
            return *value != '\0' ? nullptr : "--host takes a name";
        case 'j':
            arguments.json = true;
            return nullptr;
        case 'h':
            arguments.help = true;
            return nullptr;
        default:
            return "there is no such option, or its value is missing";
    }
}

const char* checkArguments(int argc, char** argv, Arguments& arguments) {
    if (!arguments.import) {
        if (arguments.year || arguments.host || arguments.json) {
            return "--year, --host and --json belong to --import";
        }
        return optind < argc ? "too many arguments" : nullptr;
    }
    if (arguments.daemonOption) return "--import takes neither --listen nor --notify-fd";
    arguments.import->year = arguments.year;
    if (arguments.host) arguments.import->host = *arguments.host;
    arguments.import->json = arguments.json;
    for (int i = optind; i < argc; ++i) {
        if (*argv[i] == '\0') return "a file has no name";
        arguments.import->files.emplace_back(argv[i]);
    }
    return nullptr;
}

const char* readArguments(int argc, char** argv, Arguments& arguments) {
    static const std::array<option, 8> kOptions = {{{"listen", required_argument, nullptr, 'l'},
                                                    {"notify-fd", required_argument, nullptr, 'n'},
                                                    {"import", required_argument, nullptr, 'i'},
                                                    {"year", required_argument, nullptr, 'y'},
                                                    {"host", required_argument, nullptr, 'H'},
                                                    {"json", no_argument, nullptr, 'j'},
                                                    {"help", no_argument, nullptr, 'h'},
                                                    {nullptr, 0, nullptr, 0}}};
    ::opterr = 0;  // it would say a line of its own
    for (;;) {
        const int option = ::getopt_long(argc, argv, "h", kOptions.data(), nullptr);
        if (option == -1) break;
        if (const char* const wrong = takeOption(option, optarg, arguments)) return wrong;
    }
    return checkArguments(argc, argv, arguments);
}

}  // namespace

int main(int argc, char** argv) try {
    Arguments arguments;
    if (const char* const wrong = readArguments(argc, argv, arguments)) {
        ombrel::logLine(std::string("ombrel-logwriter: ") + wrong + "; --help lists the options");
        return EX_USAGE;
    }
    if (arguments.help) return std::fputs(kUsage, stdout) >= 0 ? EX_OK : EX_IOERR;
    if (arguments.import) {
        arguments.import->settingsFile = arguments.writer.settingsFile;
        arguments.import->schemaFile = arguments.writer.schemaFile;
        return ombrel::importCommand(*arguments.import);
    }
    ombrel::LogWriter writer(arguments.writer);
    const int code = writer.start();
    return code == EX_OK ? writer.run() : code;
} catch (const std::exception& failure) {
    ombrel::logLine(std::string("ombrel-logwriter ends: ") + failure.what());
    return EX_SOFTWARE;
}
