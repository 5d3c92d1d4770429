// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A clock that nobody sets, whose readings can be kept in a file: together with the name of the boot that they
// belong to.
#pragma once

#include <ctime>
#include <fstream>
#include <string>

namespace ombrel {

/// Seconds since the machine was started, the time that it slept included.
inline long long bootSeconds() {
    timespec now{};
    (void)::clock_gettime(CLOCK_BOOTTIME, &now);  // cannot fail with a clock that exists
    return now.tv_sec;
}

/// Another one after each start of the machine; "-" where the kernel does not say.
inline std::string bootName() {
    std::ifstream file("/proc/sys/kernel/random/boot_id");
    std::string name;
    return file >> name ? name : "-";
}

}  // namespace ombrel
