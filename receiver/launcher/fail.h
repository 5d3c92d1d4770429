// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What a receiver says when something fails: one line, and the exit code that goes with it.
#pragma once

#include <cerrno>
#include <cstring>
#include <string>

#include "receiver/visible_log.h"

namespace ombrel {

inline int fail(int code, const std::string& text) {
    logLine("ombrel-receiver: " + text);
    return code;
}

inline int failErrno(int code, const std::string& text) {
    return fail(code, text + ": " + std::strerror(errno));
}

}  // namespace ombrel
