// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Finishes one archived log database as the settings say: text export, ZIP file. Started by the archiver in
// a process of its own; can be run again by hand on an archive whose first run failed.
// Exit codes are those of sysexits.h.
#include <sys/stat.h>
#include <sysexits.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "linux/common/text_escape.h"
#include "ombrel/postprocessor.h"
#include "platform/vesksyslog.h"

namespace {

constexpr std::string_view kOption = "--dbpath=";
constexpr const char* kSettingsFile = "/var/packages/Ombrel/target/service/conf/server.conf";
constexpr const char* kHelp =
    "usage: vesksyslogpostproc --dbpath=PATH\n"
    "Makes a text export and a ZIP file of an archived log database, as the settings say. Silent on success.\n"
    "Exit codes: 0 done, 64 wrong words, 66 no such file, 70 conversion or compression failed (the archive\n"
    "stays, run the command again), 78 the settings cannot be read";

int complain(int exitCode, const std::string& what) {
    (void)fprintf(stderr, "vesksyslogpostproc: %s\n", ombrel::escapeForLine(what).c_str());
    return exitCode;
}

int usage() {
    return complain(EX_USAGE, "usage: vesksyslogpostproc --dbpath=PATH, PATH being an archived log database");
}

/// What to say, and to do, about an archive that could not be finished.
std::string diagnosis(const std::string& path) {
    if (SyslogDBVersionGet(path) < 0) {
        return path + " is no log database, or is damaged; it was left as it is";
    }
    return path +
           " could not be converted or compressed; the system log says at which step. It was left in place: " +
           "when the cause is mended (room on the volume, write permission, zip installed), run this command "
           "again";
}

int run(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return complain(EX_NOINPUT, path + ": " + strerror(errno) + "; expected an archived log database");
    }
    if (!S_ISREG(status.st_mode)) return complain(EX_NOINPUT, path + " is not a file");
    PostProcessor processor;
    if (processor.ConfigLoad(kSettingsFile) < 0) {
        return complain(EX_CONFIG, std::string(kSettingsFile) + " cannot be read or lacks a required key");
    }
    if (processor.PostProcess(path) < 0) return complain(EX_SOFTWARE, diagnosis(path));
    return EX_OK;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return usage();
    const std::string_view argument = argv[1];
    if (argument == "--help") {
        (void)puts(kHelp);
        return EX_OK;
    }
    if (!argument.starts_with(kOption) || argument.size() == kOption.size()) return usage();
    return run(std::string(argument.substr(kOption.size())));
}
