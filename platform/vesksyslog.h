// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The log database, its rows and keys; the event log; the debug sink.
// Handles belong to one thread at a time; the free functions may be called from several threads.
#pragma once

#include <list>
#include <map>
#include <string>

#include "platform/vesk_export.h"

/// Severity of a log row, RFC 5424 section 6.2.1: 0 is the most severe.
enum _SYSLOG_DB_PRIORITY_tag : int {
    SYSLOG_DB_PRIORITY_EMERG = 0,
    SYSLOG_DB_PRIORITY_ALERT = 1,
    SYSLOG_DB_PRIORITY_CRIT = 2,
    SYSLOG_DB_PRIORITY_ERR = 3,
    SYSLOG_DB_PRIORITY_WARNING = 4,
    SYSLOG_DB_PRIORITY_NOTICE = 5,
    SYSLOG_DB_PRIORITY_INFO = 6,
    SYSLOG_DB_PRIORITY_DEBUG = 7,
};

/// The extended-key tables: ids to texts.
enum _SYSLOG_EXTKEY_TB_TYPE_tag : int {
    SYSLOG_EXTKEY_HOST = 0,
    SYSLOG_EXTKEY_PROGRAM = 1,
    SYSLOG_EXTKEY_SENDER = 2,
    SYSLOG_EXTKEY_FACILITY = 3,
};

/// One log row. Of a version-1 database the ids are the texts themselves.
struct _SYSLOG_LOG_DATA_tag {
    std::string rowId;        ///< decimal, rises with the arrival of the rows
    std::string timestamp;    ///< the row's own time, decimal seconds since the epoch
    std::string receiveTime;  ///< decimal seconds since the epoch
    _SYSLOG_DB_PRIORITY_tag priority{};
    std::string senderId;  ///< decimal, extended-key table 2
    std::string hostId;    ///< decimal, extended-key table 0
    std::string processId;
    std::string facilityId;  ///< decimal, extended-key table 3
    std::string messageId;   ///< MSGID of RFC 5424
    std::string date;        ///< YYYY-MM-DD, local day
    std::string time;        ///< HH:MM:SS, local time
    std::string programId;   ///< decimal, extended-key table 1
    std::string message;
};

/// What a condition looks at.
enum _SYSLOG_SQL_FIELD_tag : int {
    SYSLOG_SQL_FIELD_HOST = 0,      ///< `text`
    SYSLOG_SQL_FIELD_PROGRAM = 1,   ///< `text`
    SYSLOG_SQL_FIELD_SENDER = 2,    ///< `text`
    SYSLOG_SQL_FIELD_FACILITY = 3,  ///< `text`, a name such as "local0"
    SYSLOG_SQL_FIELD_SEVERITY = 4,  ///< `number`, 0..7
    SYSLOG_SQL_FIELD_TIME = 5,      ///< `number`, the row's own time in seconds since the epoch
    SYSLOG_SQL_FIELD_MESSAGE = 6,   ///< `text`
    SYSLOG_SQL_FIELD_ROW = 7,       ///< `number`, the id of the row
};

/// How it is compared. The numeric fields take the first four, the text fields equal, not equal and contains.
enum _SYSLOG_SQL_COMPARE_tag : int {
    SYSLOG_SQL_EQUAL = 0,
    SYSLOG_SQL_NOT_EQUAL = 1,
    SYSLOG_SQL_AT_LEAST = 2,
    SYSLOG_SQL_AT_MOST = 3,
    SYSLOG_SQL_CONTAINS = 4,  ///< letter case of ASCII letters does not matter; no wildcards
};

/// One condition on a row; a list of them means all of them. Values are bound, never part of the SQL text.
struct _SYSLOG_SQL_COND_tag {
    _SYSLOG_SQL_FIELD_tag field{};
    _SYSLOG_SQL_COMPARE_tag compare{};
    std::string text;
    long long number{};
};

/// `rows` per call at most (negative: no limit), after skipping `offset` rows.
struct _SYSLOG_SQL_LIMIT_tag {
    long long rows;
    long long offset;
};

/// `direction` 0 ascending, 1 descending. `column` names the sort key by the member of the row record:
/// 0 or 7 the order of arrival, 1 the row's own time (ties in order of arrival).
struct _SYSLOG_SQL_ORDER_tag {
    int direction;
    int column;
};

/// One log database file. Never creates the file.
class VESK_EXPORT DBHandler {
public:
    DBHandler(std::string dbPath, std::string schemaPath);
    ~DBHandler();
    DBHandler(const DBHandler&) = delete;
    DBHandler& operator=(const DBHandler&) = delete;

    /// Opens the database; negative when the file is missing, cannot be read or is no log database.
    int DBCon();
    /// Closes it, discarding an open transaction; safe on a handle that never connected.
    int DBDiscon();

    /// From the information record, at the same cost for ten rows or ten million: the time of the first and
    /// the last row (seconds since the epoch, 0 when there are none) and the number of rows (-1 for a
    /// version-1 database, which has no such record, and on failure).
    long long DBInfoStartGet();
    long long DBInfoEndGet();
    long long DBInfoCntGet();
    /// The local day of the first and the last row, YYYY-MM-DD; "1970-01-01" when there are none, or when the
    /// record holds anything but a day.
    std::string DBInfoStartStrGet();
    std::string DBInfoEndStrGet();

    int DBTranStart();
    int DBTranEnd();
    /// Runs one statement.
    int DBExecute(std::string sql);

    struct Impl;
    Impl* impl;
};

/// The event log of the box: for the journal where one listens, and always a line in the event file.
class VESK_EXPORT Logger {
public:
    Logger();
    ~Logger();
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    void LogAddServStart(std::string description);
    void LogAddServStop(std::string description);
    void LogAddArchFinish(std::string archivePath);
    void LogAddArchFailed(std::string archivePath);
};

/// The debug sink. Level 0 failures, 2 notices.
class VESK_EXPORT Debuger {
public:
    static void MSG(int level, std::string text);
};

/// The layout version of a log database file: 2, 1 (plain text columns and `ldate`, no information record),
/// or -1 when it is neither.
VESK_EXPORT int SyslogDBVersionGet(const std::string& dbPath);
/// Fills `out` with one extended-key table. 0 for success, anything else failure (a version-1 database has none).
VESK_EXPORT int SyslogDBExtkeyMapGet(std::string& db, _SYSLOG_EXTKEY_TB_TYPE_tag type,
                                     std::map<unsigned long long, std::string>& out);
/// The number of rows that meet all conditions, cut to the largest int; negative on failure.
VESK_EXPORT int SyslogDBSelectCount(std::string& db, std::list<_SYSLOG_SQL_COND_tag>& conds,
                                    _SYSLOG_SQL_LIMIT_tag* limit, _SYSLOG_SQL_ORDER_tag* order);
/// Calls `callback` for each row that meets all conditions, in the order asked for. The row record is
/// reused: its contents are valid during the call. A negative result of the callback ends the selection.
/// Walking a file page by page with rising offsets costs the same for each page.
/// @return 0 on success, negative on failure
VESK_EXPORT int SyslogDBSelect(std::string& db, std::list<_SYSLOG_SQL_COND_tag>& conds,
                               _SYSLOG_SQL_LIMIT_tag* limit, _SYSLOG_SQL_ORDER_tag* order,
                               int (*callback)(_SYSLOG_LOG_DATA_tag&, void*), void* context, bool flag);
/// The name of a severity: "emerg", "alert", "crit", "err", "warning", "notice", "info", "debug"; the
/// number itself for any other value.
VESK_EXPORT std::string PriorTypeToStr(_SYSLOG_DB_PRIORITY_tag priority);
/// Decimal text, without leading zeros.
VESK_EXPORT std::string ullNumberToString(unsigned long long value);
