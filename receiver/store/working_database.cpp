// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/store/working_database.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "linux/common/log_layout.h"
#include "linux/common/receipts.h"

namespace ombrel {

namespace {

// A moved or an unusable file is met at most once each; more often, something else is wrong.
constexpr int kAttempts = 4;
constexpr int kMaxSetAside = 10'000;

std::string systemError(const std::string& doing) {
    return doing + ": " + std::strerror(errno);
}

// At most the folder and the one above it: where more is missing, it is the volume that is not there, and
// messages are not to end on the system partition.
bool makeFolderOf(const std::string& databasePath) {
    const std::string folder = folderOf(databasePath);
    if (::mkdir(folder.c_str(), 0755) == 0 || errno == EEXIST) return true;
    if (errno != ENOENT) return false;
    const std::string above = folderOf(folder);
    if (::mkdir(above.c_str(), 0755) != 0 && errno != EEXIST) return false;
    return ::mkdir(folder.c_str(), 0755) == 0 || errno == EEXIST;
}

bool isUnusable(int code) noexcept {
    const int primary = code & 0xff;
    return primary == SQLITE_NOTADB || primary == SQLITE_CORRUPT;
}

}  // namespace

struct WorkingDatabase::Totals {
    long long rows = 0;
    size_t repeated = 0;
    std::int64_t first = INT64_MAX;
    std::int64_t last = INT64_MIN;
    std::string firstDay;
    std::string lastDay;
};

WorkingDatabase::WorkingDatabase(std::string path, const std::string& schema, PageSizes pages)
    : path_(std::move(path)), schema_(schema), pages_(pages) {
}

void WorkingDatabase::close() {
    statements_.reset();
    connection_.close();
}

WorkingDatabase::Step WorkingDatabase::failed(int code, const char* doing, StoreOutcome& outcome) {
    outcome.error = std::string(doing) + " " + path_ + ": " + sqlite3_errstr(code);
    if ((code & 0xff) == SQLITE_BUSY) outcome.error += " (another program has it)";
    return isUnusable(code) ? Step::kUnusable : Step::kFailed;
}

WorkingDatabase::Step WorkingDatabase::openFile(StoreOutcome& outcome) {
    if (!turnstile_.open(path_) && !(errno == ENOENT && makeFolderOf(path_) && turnstile_.open(path_))) {
        outcome.error = systemError("cannot open the folder of " + path_);
        return Step::kFailed;
    }
    if (const int code = connection_.open(path_, OpenMode::kCreate)) return failed(code, "cannot open", outcome);
    connection_.setBusyTimeout(static_cast<int>(kPatience.count()));
    if (turnstile_.pass(kPatience) != TurnstileResult::kEntered) {
        outcome.error = "cannot open " + path_ + ": it is being moved";
        return Step::kFailed;
    }
    if (const int code = prepareForWriting(connection_)) return failed(code, "cannot open", outcome);
    // Other sizes would do as well, only slower or larger; pages keep theirs once there is a file.
    const std::string sizes = "PRAGMA page_size=" + std::to_string(pages_.pageBytes) + "; PRAGMA cache_size=-" +
                              std::to_string(pages_.cacheKib);
    (void)connection_.execute(sizes.c_str());
    if (const int code = createLogDatabase(connection_, schema_)) return failed(code, "cannot begin", outcome);
    return checkLayout(outcome);
}

WorkingDatabase::Step WorkingDatabase::checkLayout(StoreOutcome& outcome) {
    LogLayout layout = LogLayout::kNone;
    if (const int code = readLogLayout(connection_, layout)) return failed(code, "cannot read", outcome);
    if (layout == LogLayout::kVersion2) return Step::kDone;
    const bool isOld = layout == LogLayout::kVersion1;
    outcome.error = path_ + (isOld ? " has the old layout" : " is no log database");
    return isOld ? Step::kOldLayout : Step::kUnusable;
}

int WorkingDatabase::prepareStatements() {
    Statements& all = statements_.emplace();
    if (const int code = all.addRow.prepare(
            connection_,
            "INSERT INTO logs(utcsec,rutcsec,sutcsec,utcoff,host,sender,facility,severity,program,pid,"
            "msgid,sdata,msg) VALUES(?1,?2,?3,?4,?5,?6,?7,?8,?9,?10,?11,?12,?13)")) {
        return code;
    }
    if (const int code = all.updateInfo.prepare(
            connection_,
            "UPDATE loginfo SET row_count=row_count+?1, first_sec=min(ifnull(first_sec,?2),?2),"
            " last_sec=max(ifnull(last_sec,?3),?3), first_day=min(ifnull(first_day,?4),?4),"
            " last_day=max(ifnull(last_day,?5),?5)")) {
        return code;
    }
    if (const int code =
            all.setReceipts.prepare(connection_, "INSERT OR REPLACE INTO receipts(receiver,ids) VALUES(?1,?2)")) {
        return code;
    }
    if (const int code = all.hosts.prepare(connection_, "hosts")) return code;
    if (const int code = all.senders.prepare(connection_, "senders")) return code;
    if (const int code = all.facilities.prepare(connection_, "facilities")) return code;
    return all.programs.prepare(connection_, "programs");
}

// All that is known anywhere is kept until a receiver's next batch is wholly new: ids name a line for good, so
// an old one does no harm, while a database that was moved away by hand leaves no receipts file.
int WorkingDatabase::readReceipts(StoreOutcome& outcome) {
    Receipts inFile;
    Receipts inDatabase;
    if (!loadReceiptsFile(receiptsPathOf(path_), inFile)) {
        // Without it only a batch that comes again after a move would be doubled: no reason to refuse rows.
        outcome.notice = systemError("cannot read " + receiptsPathOf(path_));
        inFile.clear();
    }
    if (const int code = loadReceipts(connection_, inDatabase)) return code;
    for (const Receipts* receipts : {&inFile, &inDatabase}) {
        for (const auto& [receiver, bytes] : *receipts) {
            if (auto ids = ReceiptIds::unpack(bytes)) known_[receiver].merge(*ids);
        }
    }
    return SQLITE_OK;
}

WorkingDatabase::Step WorkingDatabase::ensureOpen(StoreOutcome& outcome) {
    if (statements_) return Step::kDone;
    if (const Step step = openFile(outcome); step != Step::kDone) return step;
    if (const int code = prepareStatements()) return failed(code, "cannot use", outcome);
    if (const int code = readReceipts(outcome)) return failed(code, "cannot read", outcome);
    return Step::kDone;
}

int WorkingDatabase::writeRow(const LogRow& row, LocalClock& clock, Totals& totals) {
    Statements& all = *statements_;
    long long host = 0;
    long long sender = 0;
    long long facility = 0;
    long long program = 0;
    if (const int code = all.hosts.find(connection_, row.host, host)) return code;
    if (const int code = all.senders.find(connection_, row.sender, sender)) return code;
    if (const int code = all.facilities.find(connection_, facilityName(row.parsed.facility), facility))
        return code;
    if (const int code = all.programs.find(connection_, row.parsed.program, program)) return code;
    const LocalClock::Stamp stamp = clock.stamp(row.time);
    Statement& add = all.addRow;
    int code = add.bind(1, row.time) | add.bind(2, row.received);
    code |= row.sent ? add.bind(3, *row.sent) : add.bindNull(3);
    code |= add.bind(4, stamp.utcOffset);
    code |= add.bind(5, host) | add.bind(6, sender) | add.bind(7, facility);
    code |= add.bind(8, row.parsed.severity) | add.bind(9, program);
    const auto bindOptional = [&add](int index, std::string_view text) {
        return text.empty() ? add.bindNull(index) : add.bindText(index, text);
    };
    code |= bindOptional(10, row.parsed.processId) | bindOptional(11, row.parsed.messageId);
    code |= bindOptional(12, row.parsed.structuredData) | add.bindText(13, row.parsed.message);
    // A failed binding is lack of memory or a text beyond SQLite's limits.
    if (code != SQLITE_OK) return SQLITE_NOMEM;
    if (const int result = add.run()) return result;
    ++totals.rows;
    totals.first = std::min(totals.first, row.time);
    totals.last = std::max(totals.last, row.time);
    if (totals.firstDay.empty() || stamp.day < totals.firstDay) totals.firstDay = stamp.day;
    if (stamp.day > totals.lastDay) totals.lastDay = stamp.day;
    return SQLITE_OK;
}

int WorkingDatabase::writeBatch(const RowBatch& batch, Known& known, LocalClock& clock, Totals& totals) {
    // Of blank lines only, or of none: it says nothing about the rows of the batch before it.
    if (batch.rows.empty()) return SQLITE_OK;
    ReceiptIds ids;
    const bool hasReceipts = !batch.receiver.empty();
    if (hasReceipts) {
        for (const LogRow& row : batch.rows)
            ids.add(row.id);
        ids.seal();
    }
    ReceiptIds& before = known[batch.receiver];
    const bool again = hasReceipts && before.overlaps(ids);
    for (const LogRow& row : batch.rows) {
        if (again && before.contains(row.id)) {
            ++totals.repeated;
        } else if (const int code = writeRow(row, clock, totals)) {
            return code;
        }
    }
    if (!hasReceipts) return SQLITE_OK;
    // A batch may come again in pieces: what was known stays known until a batch is wholly new.
    if (again) ids.merge(before);
    before = std::move(ids);
    const std::string packed = before.pack();
    Statement& set = statements_->setReceipts;
    if (const int code = set.bindText(1, batch.receiver)) return code;
    if (const int code = set.bindBlob(2, packed)) return code;
    return set.run();
}

int WorkingDatabase::writeInfo(const Totals& totals) {
    if (totals.rows == 0) return SQLITE_OK;
    Statement& info = statements_->updateInfo;
    const int code = info.bind(1, totals.rows) | info.bind(2, totals.first) | info.bind(3, totals.last) |
                     info.bindText(4, totals.firstDay) | info.bindText(5, totals.lastDay);
    return code != SQLITE_OK ? SQLITE_NOMEM : info.run();
}

WorkingDatabase::Step WorkingDatabase::attempt(const std::vector<RowBatch>& batches, LocalClock& clock,
                                               StoreOutcome& outcome) {
    if (const Step step = ensureOpen(outcome); step != Step::kDone) {
        // Another writer may have filled it and a mover taken it before this one had begun.
        return connection_.isOpen() && connection_.hasMoved() ? Step::kMoved : step;
    }
    if (turnstile_.pass(kPatience) != TurnstileResult::kEntered) {
        outcome.error = "cannot write " + path_ + ": it is being moved";
        return Step::kFailed;
    }
    Transaction transaction(connection_);
    if (const int code = transaction.beginImmediate()) {
        // The name may lead nowhere by now, and then the old file is none of our business any more.
        return connection_.hasMoved() ? Step::kMoved : failed(code, "cannot write", outcome);
    }
    if (connection_.hasMoved()) return Step::kMoved;
    Known known = known_;
    Totals totals;
    for (const RowBatch& batch : batches) {
        if (const int code = writeBatch(batch, known, clock, totals)) return failed(code, "cannot write", outcome);
    }
    if (const int code = writeInfo(totals)) return failed(code, "cannot write", outcome);
    if (const int code = transaction.commit()) return failed(code, "cannot write", outcome);
    known_ = std::move(known);
    outcome.rows = static_cast<size_t>(totals.rows);
    outcome.repeated = totals.repeated;
    return Step::kDone;
}

// Under the turnstile, and only while the open file still has the name: another program may have set it aside
// and begun a good one meanwhile. ombrel-upgrade knows a sound database of the old layout by its name.
bool WorkingDatabase::setAside(Step why, StoreOutcome& outcome) {
    statements_.reset();
    if (turnstile_.hold(kPatience) != TurnstileResult::kEntered) return false;
    const bool isOld = why == Step::kOldLayout;
    bool done = connection_.isOpen() && connection_.hasMoved();
    for (int n = 1; !done && n <= kMaxSetAside; ++n) {
        const std::string name = path_ + (isOld ? ".old-" : ".corrupt-") + std::to_string(n);
        if (::renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, name.c_str(), RENAME_NOREPLACE) == 0) {
            // Its journal would be played into the file that takes its place.
            (void)::rename((path_ + "-journal").c_str(), (name + "-journal").c_str());
            outcome.notice = outcome.error + "; it was set aside as " + name +
                             (isOld ? ", from where ombrel-upgrade takes it," : "") + " and a new one begun";
            done = true;
        } else if (errno != EEXIST) {
            outcome.error += "; " + systemError("cannot set it aside as " + name);
            break;
        }
    }
    turnstile_.leave();
    return done;
}

StoreOutcome WorkingDatabase::store(const std::vector<RowBatch>& batches, LocalClock& clock) {
    StoreOutcome outcome;
    for (int left = kAttempts; left > 0; --left) {
        const Step step = attempt(batches, clock, outcome);
        if (step == Step::kDone) {
            outcome.stored = true;
            outcome.error.clear();
            return outcome;
        }
        const bool isUsable = step != Step::kOldLayout && step != Step::kUnusable;
        if (!isUsable && !setAside(step, outcome)) left = 0;
        close();
        if (step == Step::kFailed) break;
    }
    if (outcome.error.empty()) outcome.error = "cannot write " + path_ + ": it is moved again and again";
    return outcome;
}

}  // namespace ombrel
