// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Applies many changes of the settings from one process, each a whole record, and fails when one fails or when the
// process has more descriptors after them than after the first.
//   settings-loop COUNT bsd|ietf PORT PORT     the port of the receiver is the one and the other in turn
#include <sysexits.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "linux/common/folder_stream.h"
#include "ombrel/ombrel.h"

namespace {

constexpr const char* kSettingsFile = "/var/packages/Ombrel/target/service/conf/server.conf";

int countDescriptors() {
    const ombrel::FolderStream folder(::opendir("/proc/self/fd"));
    int count = 0;
    while (folder && ::readdir(folder.get()) != nullptr)
        ++count;
    return count;
}

bool applyPort(bool ietf, int port) {
    _SYSLOG_CONF_SETTINGS_tag wanted;
    if (SyslogConfGet(kSettingsFile, wanted) != 0) return false;
    (ietf ? wanted.server_ietf_port : wanted.server_port) = port;
    return SyslogConfSet(kSettingsFile, wanted) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        (void)std::fputs("usage: settings-loop COUNT bsd|ietf PORT PORT\n", stderr);
        return EX_USAGE;
    }
    const bool ietf = std::string_view(argv[2]) == "ietf";
    const int ports[] = {std::atoi(argv[3]), std::atoi(argv[4])};
    int descriptors = 0;
    for (int i = 0; i < std::atoi(argv[1]); ++i) {
        if (!applyPort(ietf, ports[(i + 1) % 2])) {
            (void)std::fprintf(stderr, "settings-loop: change %d failed\n", i + 1);
            return EXIT_FAILURE;
        }
        if (i == 0) descriptors = countDescriptors();
    }
    if (countDescriptors() == descriptors) return EXIT_SUCCESS;
    (void)std::fprintf(stderr, "settings-loop: %d descriptors after the first change, %d at the end\n",
                       descriptors, countDescriptors());
    return EXIT_FAILURE;
}
