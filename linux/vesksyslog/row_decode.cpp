// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/vesksyslog/row_decode.h"

#include <sqlite3.h>

#include <charconv>
#include <cstdint>
#include <new>

#include "linux/common/column_bytes.h"

namespace ombrel {

namespace {

void setNumber(std::string& text, long long value) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, value);
    text.assign(digits, static_cast<size_t>(end.ptr - digits));
}

void setText(std::string& text, sqlite3_stmt* row, int column) {
    text.assign(columnBytesOf(row, column));
}

void setDigits(char* two, std::int64_t value) {
    two[0] = static_cast<char>('0' + value / 10);
    two[1] = static_cast<char>('0' + value % 10);
}

// A file may hold any numbers; a sum beyond them wraps round to some day of the wrong age.
void setLocalTime(sqlite3_stmt* row, _SYSLOG_LOG_DATA_tag& record, RowBlock& block) {
    const auto offset = static_cast<std::uint64_t>(sqlite3_column_int64(row, 9));
    const auto local = static_cast<std::int64_t>(static_cast<std::uint64_t>(block.lastTime) + offset);
    record.date = block.day.of(local);
    const std::int64_t ofDay = local - floorDiv(local, kDaySeconds) * kDaySeconds;
    char time[] = "00:00:00";
    setDigits(time, ofDay / 3600);
    setDigits(time + 3, ofDay / 60 % 60);
    setDigits(time + 6, ofDay % 60);
    record.time.assign(time, sizeof time - 1);
}

void setNumbers(sqlite3_stmt* row, _SYSLOG_LOG_DATA_tag& record) {
    setNumber(record.receiveTime, sqlite3_column_int64(row, 2));
    setNumber(record.senderId, sqlite3_column_int64(row, 4));
    setNumber(record.hostId, sqlite3_column_int64(row, 5));
    setNumber(record.facilityId, sqlite3_column_int64(row, 7));
    setNumber(record.programId, sqlite3_column_int64(row, 11));
}

void setNames(sqlite3_stmt* row, _SYSLOG_LOG_DATA_tag& record) {
    record.receiveTime = record.timestamp;
    setText(record.senderId, row, 4);
    setText(record.hostId, row, 5);
    setText(record.facilityId, row, 7);
    setText(record.programId, row, 11);
}

void setVersion2(sqlite3_stmt* row, RowColumns columns, _SYSLOG_LOG_DATA_tag& record, RowBlock& block) {
    setNumbers(row, record);
    // Both texts are there, or neither.
    if (columns == RowColumns::kVersion2 || sqlite3_column_type(row, 13) == SQLITE_NULL) {
        setLocalTime(row, record, block);
    } else {
        setText(record.time, row, 10);
        setText(record.date, row, 13);
    }
}

// Each string is set in its old memory.
void setRecord(sqlite3_stmt* row, RowColumns columns, _SYSLOG_LOG_DATA_tag& record, RowBlock& block) {
    block.lastId = sqlite3_column_int64(row, 0);
    block.lastTime = sqlite3_column_int64(row, 1);
    setNumber(record.rowId, block.lastId);
    setNumber(record.timestamp, block.lastTime);
    record.priority = static_cast<_SYSLOG_DB_PRIORITY_tag>(sqlite3_column_int(row, 3));
    if (columns == RowColumns::kVersion1) {
        setNames(row, record);
        setText(record.date, row, 9);
        setText(record.time, row, 10);
    } else {
        setVersion2(row, columns, record, block);
    }
    setText(record.processId, row, 6);
    setText(record.messageId, row, 8);
    setText(record.message, row, 12);
}

}  // namespace

void fillBlock(const Statement& statement, RowColumns columns, RowBlock& block) noexcept try {
    sqlite3_stmt* row = statement.handle();
    block.count = 0;
    block.isLast = false;  // it may have been the last of a page before
    block.code = SQLITE_OK;
    size_t bytes = 0;
    while (block.count < RowBlock::kRows && bytes < RowBlock::kBytes) {
        const int code = sqlite3_step(row);
        if (code != SQLITE_ROW) {
            block.isLast = true;
            block.code = code == SQLITE_DONE ? SQLITE_OK : code;
            return;
        }
        _SYSLOG_LOG_DATA_tag& record = block.rows[block.count];
        setRecord(row, columns, record, block);
        bytes += record.message.size();
        ++block.count;
    }
} catch (const std::bad_alloc&) {
    block.isLast = true;
    block.code = SQLITE_NOMEM;
}

}  // namespace ombrel
