// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
//   archive-once FOLDER      archives the shared working database of FOLDER and prints the milliseconds it took
#include <chrono>
#include <cstdio>

#include "ombrel/logarchiver.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        (void)fputs("usage: archive-once FOLDER\n", stderr);
        return 64;
    }
    LogArchiver archiver;
    archiver.strArchDest = argv[1];
    archiver.ByDevice = 0;
    auto databases = archiver.CurrentWorkingDBGet();
    if (databases.empty()) return 66;
    const auto begun = std::chrono::steady_clock::now();
    const int result = archiver.DoArchive(databases.front(), false);
    const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - begun;
    (void)printf("%.1f\n", taken.count());
    return result < 0 ? 1 : 0;
}
