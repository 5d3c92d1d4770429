// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The debug sink: the system log, and standard error for whoever asks with OMBREL_DEBUG=LEVEL.
#include <syslog.h>

#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "linux/common/text_escape.h"
#include "platform/vesksyslog.h"

namespace {

bool isWantedOnStderr(int level) {
    const char* wanted = std::getenv("OMBREL_DEBUG");
    if (wanted == nullptr || *wanted == '\0') return false;
    char* end = nullptr;
    const long highest = std::strtol(wanted, &end, 10);
    return *end == '\0' && level <= highest;
}

}  // namespace

void Debuger::MSG(int level, std::string text) try {
    const std::string line = ombrel::escapeForLine(text);
    syslog(level == 0 ? LOG_ERR : LOG_DEBUG, "%s", line.c_str());
    if (isWantedOnStderr(level)) (void)std::fprintf(stderr, "%s\n", line.c_str());  // nobody left to tell
} catch (const std::bad_alloc&) {
    syslog(LOG_ERR, "out of memory while reporting");
}
