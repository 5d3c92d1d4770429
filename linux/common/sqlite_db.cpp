// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/sqlite_db.h"

#include <sqlite3.h>

#include <climits>
#include <new>

#include "linux/common/column_bytes.h"
#include "linux/common/journal_guard.h"

namespace ombrel {

static_assert(Statement::kRow == SQLITE_ROW && Statement::kDone == SQLITE_DONE);

namespace {

int openFlags(OpenMode mode) {
    // NOMUTEX: a connection belongs to one thread at a time, and the mutex costs at each step.
    const int common = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    switch (mode) {
        case OpenMode::kReadOnly:
            return common | SQLITE_OPEN_READONLY;
        case OpenMode::kReadWrite:
            return common | SQLITE_OPEN_READWRITE;
        case OpenMode::kCreate:
            return common | SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    }
    return common | SQLITE_OPEN_READONLY;
}

// "file:..." and ":memory:" mean something else to SQLite than a file of that name.
std::string plainPath(const std::string& path) {
    return path.front() == '/' ? path : "./" + path;
}

}  // namespace

Connection& Connection::operator=(Connection&& other) noexcept {
    if (this != &other) {
        close();
        db_ = std::exchange(other.db_, nullptr);
        guard_ = std::exchange(other.guard_, nullptr);
    }
    return *this;
}

int Connection::open(const std::string& path, OpenMode mode) noexcept try {
    close();
    if (path.empty() || path.find('\0') != std::string::npos) return SQLITE_CANTOPEN;
    guard_ = new JournalGuard;
    const int code = sqlite3_open_v2(plainPath(path).c_str(), &db_, openFlags(mode), guard_->name());
    if (code != SQLITE_OK) {
        close();  // a failed open hands a handle out too
        return code;
    }
    guard_->watch(db_);
    setBusyTimeout(kBusyTimeoutMs);
    return SQLITE_OK;
} catch (const std::bad_alloc&) {
    return SQLITE_NOMEM;
}

int Connection::openBytes(std::string& bytes) noexcept {
    close();
    int code = sqlite3_open_v2(":memory:", &db_, openFlags(OpenMode::kReadWrite), nullptr);
    if (code == SQLITE_OK) {
        const auto size = static_cast<sqlite3_int64>(bytes.size());
        code = sqlite3_deserialize(db_, "main", reinterpret_cast<unsigned char*>(bytes.data()), size, size,
                                   SQLITE_DESERIALIZE_READONLY);
    }
    if (code != SQLITE_OK) close();
    return code;
}

void Connection::close() noexcept {
    JournalGuard* const guard = std::exchange(guard_, nullptr);
    // Fails only while statements are left; then the connection lives on, and what it stands on with it.
    if (sqlite3_close(std::exchange(db_, nullptr)) == SQLITE_OK) delete guard;
}

void Connection::setBusyTimeout(int milliseconds) noexcept {
    (void)sqlite3_busy_timeout(db_, milliseconds);  // fails only without a connection
}

int Connection::execute(const char* sql) noexcept {
    if (db_ == nullptr) return SQLITE_MISUSE;
    return sqlite3_exec(db_, sql, nullptr, nullptr, nullptr);
}

bool Connection::inTransaction() const noexcept {
    return db_ != nullptr && sqlite3_get_autocommit(db_) == 0;
}

bool Connection::isReadOnly() const noexcept {
    return db_ != nullptr && sqlite3_db_readonly(db_, "main") != 0;
}

bool Connection::hasMoved() const noexcept {
    int moved = 0;
    const int code = sqlite3_file_control(db_, "main", SQLITE_FCNTL_HAS_MOVED, &moved);
    return code != SQLITE_OK || moved != 0;
}

long long Connection::lastInsertId() const noexcept {
    return sqlite3_last_insert_rowid(db_);
}

int Connection::lastCode() const noexcept {
    return db_ != nullptr ? sqlite3_extended_errcode(db_) : SQLITE_MISUSE;
}

const char* Connection::lastMessage() const noexcept {
    return db_ != nullptr ? sqlite3_errmsg(db_) : "the database is not open";
}

Statement& Statement::operator=(Statement&& other) noexcept {
    if (this != &other) {
        finalize();
        statement_ = std::exchange(other.statement_, nullptr);
    }
    return *this;
}

int Statement::prepare(const Connection& connection, std::string_view sql) noexcept {
    finalize();
    if (!connection.isOpen()) return SQLITE_MISUSE;
    if (sql.size() > INT_MAX) return SQLITE_TOOBIG;
    if (sql.find('\0') != std::string_view::npos) return SQLITE_ERROR;
    const char* tail = nullptr;
    const int code =
        sqlite3_prepare_v2(connection.handle(), sql.data(), static_cast<int>(sql.size()), &statement_, &tail);
    if (code != SQLITE_OK) return code;
    const std::string_view rest(tail, static_cast<size_t>(sql.data() + sql.size() - tail));
    if (statement_ == nullptr || rest.find_first_not_of(" \t\r\n;") != std::string_view::npos) {
        finalize();
        return SQLITE_ERROR;
    }
    return SQLITE_OK;
}

void Statement::finalize() noexcept {
    (void)sqlite3_finalize(std::exchange(statement_, nullptr));  // repeats the failure of the last step
}

int Statement::bind(int index, long long value) noexcept {
    return sqlite3_bind_int64(statement_, index, value);
}

int Statement::bindText(int index, std::string_view text) noexcept {
    // An empty view may hold a null pointer, which SQLite would take for NULL.
    const char* data = text.data() != nullptr ? text.data() : "";
    return sqlite3_bind_text64(statement_, index, data, text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

int Statement::bindBlob(int index, std::string_view bytes) noexcept {
    const char* data = bytes.data() != nullptr ? bytes.data() : "";
    return sqlite3_bind_blob64(statement_, index, data, bytes.size(), SQLITE_STATIC);
}

int Statement::bindNull(int index) noexcept {
    return sqlite3_bind_null(statement_, index);
}

int Statement::step() noexcept {
    return statement_ != nullptr ? sqlite3_step(statement_) : SQLITE_MISUSE;
}

int Statement::run() noexcept {
    int code = step();
    while (code == kRow)
        code = step();
    reset();
    return code == kDone ? SQLITE_OK : code;
}

void Statement::reset() noexcept {
    (void)sqlite3_reset(statement_);  // repeats the failure of the last step
}

int Statement::columnCount() const noexcept {
    return sqlite3_column_count(statement_);
}

const char* Statement::columnName(int index) const noexcept {
    return sqlite3_column_name(statement_, index);
}

bool Statement::columnIsNull(int index) const noexcept {
    return sqlite3_column_type(statement_, index) == SQLITE_NULL;
}

bool Statement::columnIsInteger(int index) const noexcept {
    return sqlite3_column_type(statement_, index) == SQLITE_INTEGER;
}

long long Statement::columnInt(int index) const noexcept {
    return sqlite3_column_int64(statement_, index);
}

std::string_view Statement::columnText(int index) const noexcept {
    // The text first: asking for the size afterwards is the order that never converts twice.
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, index));
    if (text == nullptr) return {};
    return {text, static_cast<size_t>(sqlite3_column_bytes(statement_, index))};
}

std::string_view Statement::columnBlob(int index) const noexcept {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, index));
    if (bytes == nullptr) return {};
    return {bytes, static_cast<size_t>(sqlite3_column_bytes(statement_, index))};
}

std::string_view Statement::columnBytes(int index) const noexcept {
    return columnBytesOf(statement_, index);
}

Transaction::~Transaction() {
    if (connection_.inTransaction()) (void)connection_.execute("ROLLBACK");  // closing discards it otherwise
}

}  // namespace ombrel
