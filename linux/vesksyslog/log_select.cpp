// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Reading the rows of a log database, a page a call. Each call opens the file, reads in one transaction
// and closes it: between two pages neither a writer nor a mover waits for the reader.
#include <algorithm>
#include <climits>
#include <new>
#include <optional>
#include <string>

#include "linux/common/error_record.h"
#include "linux/vesksyslog/open_log_database.h"
#include "linux/vesksyslog/page_positions.h"
#include "linux/vesksyslog/row_block.h"
#include "linux/vesksyslog/select_conditions.h"
#include "platform/vesksyslog.h"

namespace {

using ombrel::fail;
using ombrel::fromSqlite;
using ombrel::LogLayout;
using ombrel::PagePosition;
using ombrel::RowColumns;
using ombrel::Statement;

using Conditions = std::list<_SYSLOG_SQL_COND_tag>;

/// An open log database in a read transaction.
struct Reader {
    ombrel::Connection connection;
    LogLayout layout = LogLayout::kNone;

    int open(const std::string& path) {
        if (const int code = ombrel::openLogFile(path, connection)) return code;
        if (const int code = connection.execute("BEGIN")) return fromSqlite(code);
        if (const int code = ombrel::requireLogDatabase(connection, layout)) return code;
        const int code = ombrel::addConditionFunctions(connection);
        return code == 0 ? 0 : fromSqlite(code);
    }
    // Each page of the file is read once: memory that stays in the processor's cache is faster than more of it.
    void readOnceThrough() { (void)connection.execute("PRAGMA cache_size=-128"); }
};

struct Order {
    bool byTime = false;
    bool descending = false;
};

struct Page {
    const std::string& path;
    const Conditions& conditions;
    Order order;
    long long rows;
    long long offset;

    /// Whoever names the rows that he wants asks for no page behind it.
    [[nodiscard]] bool isByRow() const {
        return std::any_of(conditions.begin(), conditions.end(),
                           [](const auto& condition) { return condition.field == SYSLOG_SQL_FIELD_ROW; });
    }
    [[nodiscard]] std::string walk() const {
        return path + '\0' + (order.byTime ? 't' : 'a') + (order.descending ? 'd' : 'a') +
               ombrel::conditionsKey(conditions);
    }
};

std::optional<Order> orderOf(const _SYSLOG_SQL_ORDER_tag* order) {
    if (order == nullptr) return Order{};
    const bool isKnown = order->column == 0 || order->column == 7 || order->column == 1;
    if (!isKnown || (order->direction != 0 && order->direction != 1)) return std::nullopt;
    return Order{order->column == 1, order->direction == 1};
}

ombrel::PagePositions& positions() {
    static ombrel::PagePositions memory;
    return memory;
}

// A position speaks of rows that were there; a commit since then may only have added rows behind it, which
// holds for a log database read in order of arrival as long as its last row is still the same.
bool stillHolds(const Reader& reader, const PagePosition& position, const ombrel::FileState& now, Order order) {
    if (position.file.changeCounter == now.changeCounter) return true;
    if (order.byTime || order.descending) return false;
    Statement anchor;
    const char* sql = reader.layout == LogLayout::kVersion2 ? "SELECT 1 FROM logs WHERE id = ? AND utcsec = ?"
                                                            : "SELECT 1 FROM logs WHERE rowid = ?";
    if (anchor.prepare(reader.connection, sql) != 0 || anchor.bind(1, position.lastId) != 0) return false;
    if (reader.layout == LogLayout::kVersion2 && anchor.bind(2, position.lastTime) != 0) return false;
    return anchor.step() == Statement::kRow;
}

std::optional<PagePosition> findStart(const Reader& reader, const Page& page, const std::string& walk,
                                      const std::optional<ombrel::FileState>& state) {
    if (page.offset == 0 || !state) return std::nullopt;
    auto start = positions().find(walk, *state, page.offset);
    if (start && !stillHolds(reader, *start, *state, page.order)) start.reset();
    return start;
}

void appendStart(Order order, const PagePosition& start, std::string& sql, ombrel::Parameters& parameters) {
    if (order.byTime) {
        sql += order.descending ? " AND (utcsec < ? OR utcsec = ? AND id < ?)"
                                : " AND (utcsec > ? OR utcsec = ? AND id > ?)";
        parameters.emplace_back(start.lastTime);
        parameters.emplace_back(start.lastTime);
    } else {
        sql += order.descending ? " AND id < ?" : " AND id > ?";
    }
    parameters.emplace_back(start.lastId);
}

const char* orderSql(Order order) {
    if (order.byTime) return order.descending ? " ORDER BY utcsec DESC, id DESC" : " ORDER BY utcsec, id";
    return order.descending ? " ORDER BY id DESC" : " ORDER BY id";
}

int columnsOf(const Reader& reader, RowColumns& columns) {
    columns = RowColumns::kVersion1;
    if (reader.layout == LogLayout::kVersion1) return 0;
    bool hasTexts = false;
    if (const int code = ombrel::readOriginalTexts(reader.connection, hasTexts)) return fromSqlite(code);
    columns = hasTexts ? RowColumns::kVersion2WithOriginalTexts : RowColumns::kVersion2;
    return 0;
}

const char* selectSql(RowColumns columns) {
    switch (columns) {
        case RowColumns::kVersion1:
            return ombrel::kSelectVersion1;
        case RowColumns::kVersion2WithOriginalTexts:
            return ombrel::kSelectVersion2WithOriginalTexts;
        case RowColumns::kVersion2:
            break;
    }
    return ombrel::kSelectVersion2;
}

int selectPage(const Page& page, ombrel::RowCallback callback, void* context) {
    Reader reader;
    if (const int code = reader.open(page.path)) return fail(code);
    const std::string walk = page.walk();
    const auto state = ombrel::readFileState(reader.connection, page.path);
    const auto start = findStart(reader, page, walk, state);

    RowColumns columns = RowColumns::kVersion1;
    if (const int code = columnsOf(reader, columns)) return fail(code);
    std::string sql = selectSql(columns);
    sql += " WHERE 1";
    ombrel::Parameters parameters;
    if (!ombrel::appendConditions(reader.layout, page.conditions, sql, parameters)) {
        return fail(ombrel::kErrorInvalidArgument);
    }
    if (start) appendStart(page.order, *start, sql, parameters);
    sql += orderSql(page.order);
    sql += " LIMIT ? OFFSET ?";
    parameters.emplace_back(page.rows);
    parameters.emplace_back(page.offset - (start ? start->offset : 0));

    if (!page.order.byTime) reader.readOnceThrough();
    Statement statement;
    if (const int code = statement.prepare(reader.connection, sql)) return fail(fromSqlite(code));
    if (const int code = ombrel::bindAll(statement, parameters)) return fail(fromSqlite(code));
    ombrel::Delivered delivered;
    if (ombrel::deliverRows(statement, columns, page.rows, callback, context, delivered) < 0) return -1;
    if (state && delivered.rows > 0 && page.rows > 0 && !page.isByRow()) {
        positions().remember({walk, *state, page.offset + delivered.rows, delivered.lastId, delivered.lastTime});
    }
    return 0;
}

int countFrom(Statement& statement) {
    const int code = statement.step();
    if (code != Statement::kRow) return fail(fromSqlite(code));
    const long long rows = statement.columnInt(0);
    return rows > INT_MAX ? INT_MAX : static_cast<int>(rows);
}

}  // namespace

int SyslogDBSelectCount(std::string& db, std::list<_SYSLOG_SQL_COND_tag>& conds, _SYSLOG_SQL_LIMIT_tag* /*limit*/,
                        _SYSLOG_SQL_ORDER_tag* /*order*/) try {
    Reader reader;
    if (const int code = reader.open(db)) return fail(code);
    std::string sql = "SELECT COUNT(*) FROM logs WHERE 1";
    ombrel::Parameters parameters;
    if (!ombrel::appendConditions(reader.layout, conds, sql, parameters)) {
        return fail(ombrel::kErrorInvalidArgument);
    }
    // Counting rows reads them all; the information record has the number at hand.
    if (conds.empty() && reader.layout == LogLayout::kVersion2) sql = "SELECT row_count FROM loginfo";
    Statement statement;
    if (const int code = statement.prepare(reader.connection, sql)) return fail(fromSqlite(code));
    if (const int code = ombrel::bindAll(statement, parameters)) return fail(fromSqlite(code));
    return countFrom(statement);
} catch (const std::bad_alloc&) {
    return fail(ombrel::kErrorOutOfMemory);
}

int SyslogDBSelect(std::string& db, std::list<_SYSLOG_SQL_COND_tag>& conds, _SYSLOG_SQL_LIMIT_tag* limit,
                   _SYSLOG_SQL_ORDER_tag* order, int (*callback)(_SYSLOG_LOG_DATA_tag&, void*), void* context,
                   bool /*flag*/) try {
    const auto wantedOrder = orderOf(order);
    if (!wantedOrder || callback == nullptr || (limit != nullptr && limit->offset < 0)) {
        return fail(ombrel::kErrorInvalidArgument);
    }
    const Page page{db, conds, *wantedOrder, limit != nullptr ? limit->rows : -1,
                    limit != nullptr ? limit->offset : 0};
    return selectPage(page, callback, context);
} catch (const std::bad_alloc&) {
    return fail(ombrel::kErrorOutOfMemory);
}
