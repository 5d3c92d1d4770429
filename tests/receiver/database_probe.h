// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Looks into a log database from outside.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "linux/common/sqlite_db.h"
#include "tests/receiver/temp_folder.h"

#ifndef OMBREL_SCHEMA_FILE
#error "the build names the layout file"
#endif

namespace ombrel {

inline const std::string& schemaText() {
    static const std::string text = readText(OMBREL_SCHEMA_FILE);
    return text;
}

/// Every row of the answer, its columns between "|".
inline std::vector<std::string> query(const std::string& path, const std::string& sql) {
    std::vector<std::string> rows;
    Connection connection;
    EXPECT_EQ(connection.open(path, OpenMode::kReadOnly), 0) << path;
    Statement statement;
    EXPECT_EQ(statement.prepare(connection, sql), 0) << sql << ": " << connection.lastMessage();
    int code = statement.step();
    for (; code == Statement::kRow; code = statement.step()) {
        std::string row;
        for (int i = 0; i < statement.columnCount(); ++i)
            row += (i > 0 ? "|" : "") + std::string(statement.columnText(i));
        rows.push_back(row);
    }
    EXPECT_EQ(code, Statement::kDone) << sql;
    return rows;
}

inline std::vector<std::string> messages(const std::string& path) {
    return query(path, "SELECT msg FROM logs ORDER BY id");
}

inline std::string rowCount(const std::string& path) {
    return query(path, "SELECT row_count FROM loginfo").at(0);
}

}  // namespace ombrel
