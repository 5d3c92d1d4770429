// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A thin layer over SQLite: a connection and its statements that close themselves. Results are SQLite's
// extended result codes, 0 for success; `fromSqlite` turns them into codes of the error record. Nothing
// throws. A connection and its statements belong to one thread at a time.
//
// SQLite's locks are POSIX locks: closing any other descriptor of the same file drops them for the whole
// process. Never open() and close() a database file that this process also has open through SQLite.
#pragma once

#include <string>
#include <string_view>
#include <utility>

struct sqlite3;
struct sqlite3_stmt;

namespace ombrel {

class JournalGuard;

enum class OpenMode {
    kReadOnly,
    kReadWrite,  ///< read-only where the file cannot be written
    kCreate,     ///< as kReadWrite, and a missing file is created empty
};

constexpr int kBusyTimeoutMs = 10'000;

class Connection {
public:
    Connection() = default;
    Connection(Connection&& other) noexcept
        : db_(std::exchange(other.db_, nullptr)), guard_(std::exchange(other.guard_, nullptr)) {}
    Connection& operator=(Connection&& other) noexcept;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() { close(); }

    /// Opens the file. SQLite reads it only with the first statement: a file that is no database is
    /// found out then. Waits for locks at most kBusyTimeoutMs. A connection whose file was moved goes on with
    /// that file and leaves the journal at its old name alone.
    int open(const std::string& path, OpenMode mode) noexcept;
    /// A database that is in memory, only to be read. The bytes must stay as they are until close().
    int openBytes(std::string& bytes) noexcept;
    /// Rolls an open transaction back and closes. Statements must be gone before.
    void close() noexcept;
    [[nodiscard]] bool isOpen() const noexcept { return db_ != nullptr; }

    void setBusyTimeout(int milliseconds) noexcept;
    /// Runs one or several statements without looking at their rows.
    int execute(const char* sql) noexcept;
    [[nodiscard]] bool inTransaction() const noexcept;
    [[nodiscard]] bool isReadOnly() const noexcept;
    /// Whether the open file is no longer the file of the name that it was opened by. Holds until the
    /// lock is let go when asked inside a transaction that was begun with BEGIN IMMEDIATE or EXCLUSIVE.
    [[nodiscard]] bool hasMoved() const noexcept;
    [[nodiscard]] long long lastInsertId() const noexcept;
    [[nodiscard]] int lastCode() const noexcept;
    /// English text of the last failure; valid until the next call on this connection.
    [[nodiscard]] const char* lastMessage() const noexcept;
    [[nodiscard]] sqlite3* handle() const noexcept { return db_; }

private:
    sqlite3* db_ = nullptr;
    JournalGuard* guard_ = nullptr;  // owned; gone with the connection that uses it
};

/// One prepared statement. Declare it after its connection.
class Statement {
public:
    Statement() = default;
    Statement(Statement&& other) noexcept : statement_(std::exchange(other.statement_, nullptr)) {}
    Statement& operator=(Statement&& other) noexcept;
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    ~Statement() { finalize(); }

    /// Prepares exactly one statement: text behind it, a NUL within it or no statement at all is an error.
    int prepare(const Connection& connection, std::string_view sql) noexcept;
    void finalize() noexcept;
    [[nodiscard]] bool isPrepared() const noexcept { return statement_ != nullptr; }

    /// Parameters count from 1. Texts and blobs are not copied: they must stay until reset() or the next
    /// binding. A text may hold any byte.
    int bind(int index, long long value) noexcept;
    int bindText(int index, std::string_view text) noexcept;
    int bindBlob(int index, std::string_view bytes) noexcept;
    int bindNull(int index) noexcept;

    /// kRow, kDone, or the result code of a failure.
    int step() noexcept;
    /// Steps to the end, ignores rows, resets. 0 for success.
    int run() noexcept;
    void reset() noexcept;

    /// Columns count from 0. Texts and blobs are valid until the next step, reset or finalize.
    [[nodiscard]] int columnCount() const noexcept;
    [[nodiscard]] const char* columnName(int index) const noexcept;
    [[nodiscard]] bool columnIsNull(int index) const noexcept;
    [[nodiscard]] bool columnIsInteger(int index) const noexcept;
    [[nodiscard]] long long columnInt(int index) const noexcept;
    [[nodiscard]] std::string_view columnText(int index) const noexcept;
    [[nodiscard]] std::string_view columnBlob(int index) const noexcept;
    /// Any value as the bytes of its UTF-8 text, without the copy that columnText() needs for a NUL behind them.
    [[nodiscard]] std::string_view columnBytes(int index) const noexcept;
    [[nodiscard]] sqlite3_stmt* handle() const noexcept { return statement_; }

    static constexpr int kRow = 100;   // SQLITE_ROW
    static constexpr int kDone = 101;  // SQLITE_DONE

private:
    sqlite3_stmt* statement_ = nullptr;
};

/// Rolls back at the end of its life unless committed.
class Transaction {
public:
    explicit Transaction(Connection& connection) noexcept : connection_(connection) {}
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    int beginImmediate() noexcept { return connection_.execute("BEGIN IMMEDIATE"); }
    int beginExclusive() noexcept { return connection_.execute("BEGIN EXCLUSIVE"); }
    int beginDeferred() noexcept { return connection_.execute("BEGIN"); }
    int commit() noexcept { return connection_.execute("COMMIT"); }

private:
    Connection& connection_;
};

}  // namespace ombrel
