// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/read_error.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "linux/common/error_record.h"
#include "tools/ombrel/error_text.h"

namespace ombrel {

namespace {

constexpr int kPrimaryCode = 0xff;

/// What SQLite's codes mean for the reader of a log database.
std::string sqliteText(int code) {
    switch (code & kPrimaryCode) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return "it is locked by another program";
        case SQLITE_NOTADB:
            return "it is no database, or a damaged one";
        case SQLITE_CORRUPT:
            return "it is damaged: see what `sqlite3 FILE 'PRAGMA integrity_check'` says of it";
        case SQLITE_IOERR:
            return "the disk cannot be read";
        case SQLITE_NOMEM:
            return "out of memory";
        default:
            return "SQLite code " + std::to_string(code);
    }
}

std::string whyOf(const std::string& path) {
    const int code = VLIBCErrGet();
    if (::faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) != 0 && errno == EACCES)
        return std::strerror(EACCES);
    if (code == kErrorNotALogDatabase) return "it is no log database";
    if (code >= kErrorFromSqlite) return sqliteText(code - kErrorFromSqlite);
    const std::string text = errorText(code);
    return text.empty() ? "it cannot be read" : text;
}

}  // namespace

std::string readError(const std::string& path) {
    return path + ": " + whyOf(path);
}

}  // namespace ombrel
