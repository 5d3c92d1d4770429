// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The order is the design:
//   1. SQLite's exclusive lock: nobody is in a transaction, and what a writer that died left half done has
//      been rolled back.
//   2. The open file still is the file of that name.
//   3. The receipts stand beside the name, on the disk.
//   4. The new name, on the disk.
//   5. The lock goes. A writer that waited for it finds that its file has moved and begins a new one.
// No other descriptor of the file is opened: closing it would drop the lock of step 1.
#include "linux/veskfileop/database_move.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "linux/common/error_record.h"
#include "linux/common/log_layout.h"
#include "linux/common/path_parts.h"
#include "linux/common/receipts.h"
#include "linux/common/sqlite_db.h"
#include "linux/common/sync_folder.h"
#include "linux/veskfileop/file_place.h"

namespace ombrel {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kWorkingPrefix = "VESKSYSLOGDB_";

DatabaseMove failed(int code) {
    return {MoveResult::kFailed, code};
}

bool isNoDatabase(int code) {
    const int primary = code & 0xff;
    return primary == SQLITE_NOTADB || primary == SQLITE_CORRUPT;
}

DatabaseMove fromLockFailure(int code) {
    if (isNoDatabase(code)) return {MoveResult::kNotDatabase, fromSqlite(code)};
    return failed((code & 0xff) == SQLITE_BUSY ? static_cast<int>(kErrorTimeout) : fromSqlite(code));
}

int millisecondsUntil(Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 1, kBusyTimeoutMs));
}

// Only the log writer has receipts, and only for the databases it writes.
bool isWorkingDatabase(const std::string& path) {
    return nameOf(path).starts_with(kWorkingPrefix);
}

// A receiver without an entry in this database may have one from a database moved before.
int carryReceipts(const Connection& connection, const std::string& from) {
    if (!isWorkingDatabase(from)) return 0;
    Receipts inDatabase;
    if (const int code = loadReceipts(connection, inDatabase)) {
        return isNoDatabase(code) ? 0 : fromSqlite(code);  // a damaged database is moved for what can be saved
    }
    if (inDatabase.empty()) return 0;
    const std::string path = receiptsPathOf(from);
    Receipts all;
    if (!loadReceiptsFile(path, all) && errno != EBADMSG) return fromErrno(errno);
    for (auto& [receiver, ids] : inDatabase)
        all[receiver] = std::move(ids);
    return saveReceiptsFile(path, all) ? 0 : fromErrno(errno);
}

// Under the exclusive lock a journal is only an empty or invalidated left-over: a live one was rolled back,
// and SQLite opens it anew for each transaction.
void removeJournal(const std::string& from) {
    (void)::unlink((from + "-journal").c_str());  // usually there is none
}

// Through SQLite's own descriptor.
ReadAt readerOf(const Connection& connection) {
    return [&connection](char* buffer, size_t size, off_t offset) -> ssize_t {
        sqlite3_file* file = nullptr;
        sqlite3_int64 fileSize = 0;
        if (sqlite3_file_control(connection.handle(), "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK ||
            file->pMethods->xFileSize(file, &fileSize) != SQLITE_OK) {
            errno = EIO;
            return -1;
        }
        const auto left = static_cast<size_t>(std::max<sqlite3_int64>(fileSize - offset, 0));
        const size_t part = std::min(size, left);
        if (part == 0) return 0;
        if (file->pMethods->xRead(file, buffer, static_cast<int>(part), offset) != SQLITE_OK) {
            errno = EIO;
            return -1;
        }
        return static_cast<ssize_t>(part);
    };
}

int place(const Connection& connection, const std::string& from, const std::string& to) {
    int code = renameWithoutReplacing(from, to);
    if (code == fromErrno(EXDEV)) {
        struct stat info {};  // asked for under the lock: the last commit set the time
        if (::stat(from.c_str(), &info) != 0) return fromErrno(errno);
        code = copyInto(readerOf(connection), info, to);
        if (code == 0) code = removeSource(from, to);
    } else if (code == 0) {
        (void)syncFolder(folderOf(to));  // the move is done, and undoing it on a failing disk is no better
    }
    if (code == 0 && folderOf(from) != folderOf(to)) (void)syncFolder(folderOf(from));
    return code;
}

}  // namespace

DatabaseMove moveDatabase(const std::string& from, const std::string& to,
                          std::chrono::steady_clock::time_point deadline) {
    Connection connection;
    if (const int code = connection.open(from, OpenMode::kReadWrite)) return fromLockFailure(code);
    connection.setBusyTimeout(millisecondsUntil(deadline));
    if (const int code = leaveWal(connection)) return fromLockFailure(code);
    Transaction transaction(connection);
    if (const int code = transaction.beginExclusive()) return fromLockFailure(code);
    // Of a file that may only be read SQLite takes no more than a shared lock, and reports success.
    if (connection.isReadOnly()) return failed(fromSqlite(SQLITE_READONLY));
    if (connection.hasMoved()) {
        errno = ENOENT;
        return failed(fromErrno(ENOENT));
    }
    if (const int code = carryReceipts(connection, from)) return failed(code);
    removeJournal(from);
    if (const int code = place(connection, from, to)) return failed(code);
    return {MoveResult::kMoved, 0};
}

}  // namespace ombrel
