// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/log_reader.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>

#include "linux/common/path_parts.h"
#include "tools/ombrel/log_files.h"
#include "tools/ombrel/read_error.h"

namespace ombrel {

namespace {

using RowRecord = _SYSLOG_LOG_DATA_tag;
using Condition = _SYSLOG_SQL_COND_tag;

// The first stretch is short, for the first rows to be seen soon; each one is twice as long as that before it.
constexpr long long kFirstStretch = 8'192;
constexpr long long kMostOfWorking = 50'000;
constexpr long long kMostOfArchive = 200'000;
// What is taken out of the database at once.
constexpr std::size_t kBatchRows = 1'900;
constexpr std::size_t kBatchBytes = 4UL << 20;

constexpr std::array<_SYSLOG_EXTKEY_TB_TYPE_tag, 4> kKeyTables = {SYSLOG_EXTKEY_HOST, SYSLOG_EXTKEY_PROGRAM,
                                                                  SYSLOG_EXTKEY_SENDER, SYSLOG_EXTKEY_FACILITY};

long long numberOf(const std::string& text) {
    long long number = 0;
    (void)std::from_chars(text.data(), text.data() + text.size(), number);  // not a number: 0
    return number;
}

Condition rowCondition(_SYSLOG_SQL_COMPARE_tag compare, long long id) {
    return {SYSLOG_SQL_FIELD_ROW, compare, {}, id};
}

/// The key table that the names of a field stand in; nothing for other fields.
std::optional<std::size_t> keyTableOf(_SYSLOG_SQL_FIELD_tag field) {
    switch (field) {
        case SYSLOG_SQL_FIELD_HOST:
            return SYSLOG_EXTKEY_HOST;
        case SYSLOG_SQL_FIELD_PROGRAM:
            return SYSLOG_EXTKEY_PROGRAM;
        case SYSLOG_SQL_FIELD_SENDER:
            return SYSLOG_EXTKEY_SENDER;
        case SYSLOG_SQL_FIELD_FACILITY:
            return SYSLOG_EXTKEY_FACILITY;
        default:
            return std::nullopt;
    }
}

}  // namespace

/// Ids, both inclusive.
struct LogReader::Stretch {
    long long first = 0;
    long long last = 0;
};

struct LogReader::Batch {
    std::vector<RowRecord> rows;
    std::size_t mostRows = 0;
    std::size_t bytes = 0;
    bool isFull = false;
    bool outOfMemory = false;
};

namespace {

template <typename Batch>
int collect(RowRecord& row, void* context) {
    auto& batch = *static_cast<Batch*>(context);
    batch.bytes += row.message.size();
    try {
        batch.rows.push_back(std::move(row));
    } catch (const std::bad_alloc&) {
        batch.outOfMemory = true;
        return -1;
    }
    batch.isFull = batch.rows.size() >= batch.mostRows || batch.bytes >= kBatchBytes;
    return batch.isFull ? -1 : 0;
}

}  // namespace

LogReader::LogReader(std::string path, const LogFilter& filter, ReadOrder order)
    : path_(std::move(path)),
      filter_(filter),
      order_(order),
      isWorking_(!daysOfName(nameOf(path_))),
      stretchIds_(kFirstStretch),
      batchRows_(kBatchRows) {
}

void LogReader::startBehind(long long id) {
    above_ = id;
}

void LogReader::startBefore(long long id) {
    below_ = id;
}

void LogReader::takeAtMost(std::size_t rows) {
    batchRows_ = std::clamp<std::size_t>(rows, 1, kBatchRows);
}

bool LogReader::isSameFile() {
    struct stat64 status {};
    if (::stat64(path_.c_str(), &status) != 0) {
        isGone_ = isGone_ || errno == ENOENT || errno == ENOTDIR;
        return !isGone_;
    }
    const Identity now{status.st_dev, status.st_ino};
    if (!identity_ && status.st_size > 0) identity_ = now;
    isGone_ = isGone_ || (identity_ && *identity_ != now);
    return !isGone_;
}

/// Learns what kind of file it is. False: there is nothing to read, or `error_` says why it cannot be.
bool LogReader::begin() {
    if (isGone_ || !isSameFile()) return false;
    if (version_ != 0) return true;
    if (!identity_) return false;  // empty: one that is about to begin
    const int version = SyslogDBVersionGet(path_);
    if (version < 0) {
        if (isSameFile()) error_ = readError(path_);
        return false;
    }
    version_ = version;
    return true;
}

bool LogReader::loadKeys() {
    if (version_ == 1) return true;
    for (const auto type : kKeyTables) {
        Keys keys;
        if (SyslogDBExtkeyMapGet(path_, type, keys) != 0) {
            if (isSameFile()) error_ = readError(path_);
            return false;
        }
        keys_[static_cast<std::size_t>(type)] = std::move(keys);
    }
    hasKeys_ = true;
    return isSameFile();
}

/// Whether the rows have names that stand nowhere in the file, so that none of them has to be looked at.
bool LogReader::isHopeless() {
    if (version_ == 1) return false;
    const auto isUnknown = [this](const Condition& condition) {
        const auto table = keyTableOf(condition.field);
        if (!table || condition.compare != SYSLOG_SQL_EQUAL) return false;
        return std::none_of(keys_[*table].begin(), keys_[*table].end(),
                            [&condition](const auto& key) { return key.second == condition.text; });
    };
    const auto& conditions = filter_.conditions();
    if (std::none_of(conditions.begin(), conditions.end(), isUnknown)) return false;
    if (hasKeys_ && !isWorking_) return true;
    return loadKeys() && std::any_of(conditions.begin(), conditions.end(), isUnknown);
}

/// The first or the last id that there is between the ones that are done with; nothing when there is none, or
/// `error_` says why it cannot be told.
std::optional<long long> LogReader::edgeId(ReadOrder from) {
    if (above_ >= LLONG_MAX - 1 || below_ <= above_ + 1) return std::nullopt;
    std::list<Condition> conditions = {rowCondition(SYSLOG_SQL_AT_LEAST, above_ + 1),
                                       rowCondition(SYSLOG_SQL_AT_MOST, below_ - 1)};
    _SYSLOG_SQL_LIMIT_tag one = {1, 0};
    _SYSLOG_SQL_ORDER_tag order = {from == ReadOrder::kNewestFirst ? 1 : 0, 0};
    long long id = -1;
    const auto take = [](RowRecord& row, void* context) {
        *static_cast<long long*>(context) = numberOf(row.rowId);
        return 0;
    };
    if (SyslogDBSelect(path_, conditions, &one, &order, take, &id, false) < 0) {
        if (isSameFile()) error_ = readError(path_);
        return std::nullopt;
    }
    if (!isSameFile() || id <= above_ || id >= below_) return std::nullopt;
    return id;
}

/// The ids that come next, from one that there is on: ids may have gaps of any size. In a database that grows they
/// end with the last one that there is now, since those behind it are done with once they have come.
std::optional<LogReader::Stretch> LogReader::nextStretch() {
    const auto edge = edgeId(order_);
    if (!edge) return std::nullopt;
    const long long id = *edge;
    const long long ids = stretchIds_;
    stretchIds_ = std::min(ids * 2, isWorking_ ? kMostOfWorking : kMostOfArchive);
    if (order_ == ReadOrder::kNewestFirst) return Stretch{id - above_ > ids ? id - ids + 1 : above_ + 1, id};
    Stretch stretch{id, below_ - id > ids ? id + ids - 1 : below_ - 1};
    if (!isWorking_) return stretch;
    const auto newest = edgeId(ReadOrder::kNewestFirst);
    if (!newest) return std::nullopt;
    stretch.last = std::min(stretch.last, *newest);
    return stretch;
}

/// The rows of the stretch, or as many as a batch takes.
bool LogReader::readBatch(const Stretch& stretch, Batch& batch) {
    std::list<Condition> conditions = filter_.conditions();
    conditions.push_front(rowCondition(SYSLOG_SQL_AT_MOST, stretch.last));
    conditions.push_front(rowCondition(SYSLOG_SQL_AT_LEAST, stretch.first));
    _SYSLOG_SQL_LIMIT_tag limit = {static_cast<long long>(batchRows_), 0};
    _SYSLOG_SQL_ORDER_tag order = {order_ == ReadOrder::kNewestFirst ? 1 : 0, 0};
    const int result = SyslogDBSelect(path_, conditions, &limit, &order, collect<Batch>, &batch, false);
    if (batch.outOfMemory) error_ = path_ + ": out of memory";
    if (batch.outOfMemory) return false;
    if (result < 0 && !batch.isFull) {
        if (isSameFile()) error_ = readError(path_);
        return false;
    }
    if (!hasKeys_ || (isWorking_ && !knowsKeys(batch.rows))) {
        if (!batch.rows.empty() && !loadKeys()) return false;
    }
    return isSameFile();
}

bool LogReader::knowsKeys(const std::vector<RowRecord>& rows) const {
    if (version_ == 1) return true;
    const auto has = [this](_SYSLOG_EXTKEY_TB_TYPE_tag type, const std::string& id) {
        return keysOf(type).contains(static_cast<unsigned long long>(numberOf(id)));
    };
    return std::all_of(rows.begin(), rows.end(), [&has](const RowRecord& row) {
        return has(SYSLOG_EXTKEY_HOST, row.hostId) && has(SYSLOG_EXTKEY_PROGRAM, row.programId) &&
               has(SYSLOG_EXTKEY_SENDER, row.senderId) && has(SYSLOG_EXTKEY_FACILITY, row.facilityId);
    });
}

LogRow LogReader::rowOf(RowRecord& record) const {
    const auto name = [this](_SYSLOG_EXTKEY_TB_TYPE_tag type, std::string& id) {
        if (version_ == 1) return std::move(id);
        const auto found = keysOf(type).find(static_cast<unsigned long long>(numberOf(id)));
        return found == keysOf(type).end() ? std::string() : found->second;
    };
    LogRow row;
    row.id = numberOf(record.rowId);
    row.time = numberOf(record.timestamp);
    row.received = version_ == 1 ? 0 : numberOf(record.receiveTime);
    row.severity = record.priority;
    row.day = std::move(record.date);
    row.clock = std::move(record.time);
    row.host = name(SYSLOG_EXTKEY_HOST, record.hostId);
    row.facility = name(SYSLOG_EXTKEY_FACILITY, record.facilityId);
    row.program = name(SYSLOG_EXTKEY_PROGRAM, record.programId);
    row.sender = name(SYSLOG_EXTKEY_SENDER, record.senderId);
    row.processId = std::move(record.processId);
    row.messageId = std::move(record.messageId);
    row.message = std::move(record.message);
    return row;
}

/// The rows up to this one are behind us.
void LogReader::passTo(const Stretch& stretch, long long id) {
    if (order_ == ReadOrder::kNewestFirst) {
        passed_ += static_cast<unsigned long long>(std::min(below_ - 1, stretch.last) - id + 1);
        below_ = id;
    } else {
        passed_ += static_cast<unsigned long long>(id - std::max(above_ + 1, stretch.first) + 1);
        above_ = id;
    }
}

LogReader::End LogReader::deliver(Batch& batch, const Stretch& stretch, const Sink& sink) {
    for (RowRecord& record : batch.rows) {
        LogRow row = rowOf(record);
        const long long id = row.id;
        if (!filter_.matches(row) || sink(row)) continue;
        passTo(stretch, id);
        return End::kStopped;
    }
    const long long farEnd = order_ == ReadOrder::kNewestFirst ? stretch.first : stretch.last;
    passTo(stretch, batch.isFull ? numberOf(batch.rows.back().rowId) : farEnd);
    return End::kEnd;
}

LogReader::End LogReader::endOrFailure() {
    return error_.empty() ? End::kEnd : End::kFailed;
}

LogReader::End LogReader::read(const Sink& sink, unsigned stretches) {
    error_.clear();
    if (!begin() || isHopeless()) return endOrFailure();
    for (unsigned count = 0; stretches == 0 || count < stretches; ++count) {
        const auto stretch = nextStretch();
        if (!stretch) return endOrFailure();
        Batch batch;
        batch.mostRows = batchRows_;
        if (!readBatch(*stretch, batch)) return endOrFailure();
        if (deliver(batch, *stretch, sink) == End::kStopped) return End::kStopped;
    }
    return End::kStopped;
}

}  // namespace ombrel
