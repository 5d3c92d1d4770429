// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/vesksyslog/open_log_database.h"

#include "linux/common/error_record.h"

namespace ombrel {

int openLogFile(const std::string& path, Connection& connection) noexcept {
    const int code = connection.open(path, OpenMode::kReadWrite);
    return code == 0 ? 0 : fromSqlite(code);
}

int requireLogDatabase(const Connection& connection, LogLayout& layout) noexcept {
    if (const int code = readLogLayout(connection, layout)) return fromSqlite(code);
    return layout == LogLayout::kNone ? kErrorNotALogDatabase : 0;
}

}  // namespace ombrel
