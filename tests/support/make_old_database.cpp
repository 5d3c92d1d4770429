// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Makes a database of the old layout, which replaces whatever is at PATH.
//   make-old-database PATH ROWS [--seed N] [--plain] [--text-columns] [--hosts N] [--programs N] [--message-bytes
//   N]
//                     [--long-message-every N]
#include <getopt.h>
#include <sysexits.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <exception>

#include "tests/support/old_database.h"

namespace {

template <class Number>
bool readNumber(const char* text, Number& number) {
    const char* const end = text + std::strlen(text);
    const auto read = std::from_chars(text, end, number);
    return read.ec == std::errc() && read.ptr == end && number >= 0;
}

bool readOption(int option, const char* text, ombrel::test::OldDatabaseOptions& options) {
    switch (option) {
        case 's':
            return readNumber(text, options.seed);
        case 'p':
            return options.plain = true;
        case 't':
            return options.textColumns = true;
        case 'h':
            return readNumber(text, options.hosts);
        case 'r':
            return readNumber(text, options.programs);
        case 'm':
            return readNumber(text, options.messageBytes);
        case 'l':
            return readNumber(text, options.longMessageEvery);
        default:
            return false;
    }
}

bool readOptions(int argc, char** argv, ombrel::test::OldDatabaseOptions& options) {
    static constexpr option kOptions[] = {{"seed", required_argument, nullptr, 's'},
                                          {"plain", no_argument, nullptr, 'p'},
                                          {"text-columns", no_argument, nullptr, 't'},
                                          {"hosts", required_argument, nullptr, 'h'},
                                          {"programs", required_argument, nullptr, 'r'},
                                          {"message-bytes", required_argument, nullptr, 'm'},
                                          {"long-message-every", required_argument, nullptr, 'l'},
                                          {}};
    int option = 0;
    while ((option = getopt_long(argc, argv, "", kOptions, nullptr)) != -1)
        if (!readOption(option, optarg, options)) return false;
    return argc - optind == 2 && readNumber(argv[optind + 1], options.rows);
}

}  // namespace

int main(int argc, char** argv) try {
    ombrel::test::OldDatabaseOptions options;
    if (!readOptions(argc, argv, options)) {
        (void)fputs(
            "usage: make-old-database PATH ROWS [--seed N] [--plain] [--text-columns] [--hosts N] [--programs N]"
            " [--message-bytes N] [--long-message-every N]\n",
            stderr);
        return EX_USAGE;
    }
    ombrel::test::makeOldDatabase(argv[optind], options);
    return 0;
} catch (const std::exception& error) {
    (void)fprintf(stderr, "make-old-database: %s\n", error.what());
    return EX_CANTCREAT;
}
