// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/error_text.h"

#include <cstring>

#include "linux/common/error_record.h"

std::string ombrel::errorText(int code) {
    switch (code) {
        case kErrorOutOfMemory:
            return "out of memory";
        case kErrorForbiddenText:
            return "a value that the file cannot hold";
        case kErrorNotFound:
            return "not found";
        case kErrorExists:
            return "it exists already";
        case kErrorTimeout:
            return "not in time";
        default:
            if (code > kErrorFromErrno && code < kErrorFromSqlite) return std::strerror(code - kErrorFromErrno);
            return {};
    }
}
