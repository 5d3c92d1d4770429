// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// How the platform libraries enter a failure in the calling thread's error record: one code for each
// kind of failure, with the original code of the system or of SQLite kept inside it.
#pragma once

#include <cerrno>
#include <cstring>

#include "platform/veskcore.h"

namespace ombrel {

/// Codes of failures that neither the system nor SQLite has a number for.
enum ErrorCode : int {
    kErrorOutOfMemory = 0x0200,
    kErrorInvalidArgument = 0x0201,  ///< a null or empty argument, a number out of its range
    kErrorForbiddenText = 0x0202,    ///< a line break, a NUL or "]" where a settings file cannot hold it
    kErrorNotFound = 0x0203,         ///< no such section, share, job, ...
    kErrorExists = 0x0204,           ///< the name is taken
    kErrorNotALogDatabase = 0x0205,
    kErrorTimeout = 0x0206,
    kErrorProgramFailed = 0x0207,  ///< a program that was run reported failure
    kErrorFromErrno = 0x1000,      ///< + errno
    kErrorFromSqlite = 0x10000,    ///< + extended SQLite result code
};

constexpr int fromErrno(int error) {
    return kErrorFromErrno + error;
}
constexpr int fromSqlite(int resultCode) {
    return kErrorFromSqlite + resultCode;
}

/// Enters `code` with the caller's place in the error record and returns -1, so that a failing function
/// can end with `return fail(...)`. Keeps `errno`.
inline int fail(int code, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    const int keptErrno = errno;
    const char* slash = std::strrchr(file, '/');
    VLIBCErrSetEx(code, slash != nullptr ? slash + 1 : file, line);
    errno = keptErrno;
    return -1;
}

/// 0 when the code is 0, else as fail() does.
inline int resultOf(int code, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    return code == 0 ? 0 : fail(code, file, line);
}

}  // namespace ombrel
