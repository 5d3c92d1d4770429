// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/conversion.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "linux/common/bounded_file.h"
#include "linux/common/path_parts.h"
#include "linux/common/sync_folder.h"
#include "ombrel/utils.h"
#include "ombrel/utils_updater.h"
#include "tools/ombrel-upgrade/new_database.h"
#include "tools/ombrel-upgrade/row_time.h"
#include "tools/ombrel-upgrade/verification.h"

namespace ombrel {

namespace {

constexpr size_t kMostSchema = 1U << 20;
constexpr off_t kLargeFile = 4L << 20;
/// The messages that come in meanwhile need room, too.
constexpr unsigned long long kReserve = 64ULL << 20;
/// A transaction that holds many long messages ends early.
constexpr size_t kPageBytes = 16UL << 20;
/// Rows that come in meanwhile cost another round.
constexpr int kRounds = 5;

enum class Step { kDone, kAgain, kStopped, kFailed };

void removeDatabase(const std::string& path) {
    (void)::unlink(path.c_str());  // what is left of it shows when it is made anew
    (void)::unlink((path + "-journal").c_str());
}

class Converter {
public:
    Converter(OldDatabase& old, std::string newPath, UpgradeWatch& watch, const ConversionOptions& options)
        : old_(old), newPath_(std::move(newPath)), watch_(watch), options_(options) {}

    Conversion run();

private:
    Step round();
    Step openNew();
    Step copyRows();
    Step copyPage(long long& rows);
    int copyRow(const OldRow& row);
    Step findFirstTime();
    Step compareRows(long long version);
    bool comparedBefore();
    Step remember(long long version, long long compared);
    Step changedMeanwhile();
    Step settle();

    Step failed(std::string error);
    Step cannotRead(int code);
    Step cannotWrite(int code);

    OldDatabase& old_;
    const std::string newPath_;
    UpgradeWatch& watch_;
    const ConversionOptions& options_;
    std::string schema_;
    long long total_ = 0;
    NewDatabase new_;
    NewDatabase::Position at_;
    WallTime wallTime_;
    ZoneClock clock_;
    bool madeAnew_ = false;
    Conversion result_;
};

Step Converter::failed(std::string error) {
    result_.outcome.error = std::move(error);
    return Step::kFailed;
}

Step Converter::cannotRead(int code) {
    std::string where = at_.lastId ? " behind row " + std::to_string(*at_.lastId) : std::string();
    return failed("cannot read " + old_.path() + where + ": " + sqlite3_errstr(code));
}

Step Converter::cannotWrite(int code) {
    std::string error = "cannot write " + newPath_ + ": " + sqlite3_errstr(code);
    if ((code & 0xff) == SQLITE_FULL) error += "; make room on its volume and run this again to go on";
    return failed(std::move(error));
}

// A file that is none is made anew once: it was never in anybody's use.
Step Converter::openNew() {
    struct stat old {};
    if (::stat(old_.path().c_str(), &old) != 0) return cannotRead(SQLITE_CANTOPEN);
    const bool isLarge = old.st_size >= kLargeFile;
    int code = new_.open(newPath_, schema_, isLarge);
    if ((code & 0xff) == SQLITE_NOTADB || (code & 0xff) == SQLITE_CORRUPT) {
        new_.close();
        removeDatabase(newPath_);
        code = new_.open(newPath_, schema_, isLarge);
    }
    at_ = {};
    if (code == 0) code = new_.readPosition(at_);
    return code == 0 ? Step::kDone : cannotWrite(code);
}

// The rows before the first one that has a time are of its time, those of a file without any of the file's.
Step Converter::findFirstTime() {
    OldRow row;
    int code = old_.seek(std::nullopt, total_);
    if (code == 0) code = old_.next(row);
    for (; code == Statement::kRow; code = old_.next(row)) {
        const auto wall = wallTime_.of(row.day, row.time);
        if (!wall && watch_.stopWanted()) return Step::kStopped;
        if (!wall) continue;
        at_.lastTime = rowTimeOf(clock_, *wall, *wall).utc;
        old_.rest();
        return Step::kDone;
    }
    struct stat file {};
    if (code != Statement::kDone) return cannotRead(code);
    at_.lastTime = ::stat(old_.path().c_str(), &file) == 0 ? file.st_mtime : 0;
    return Step::kDone;
}

int Converter::copyRow(const OldRow& row) {
    const auto wall = wallTime_.of(row.day, row.time);
    const std::int64_t before = *at_.lastTime;
    const RowTime time = wall ? rowTimeOf(clock_, *wall, before) : RowTime{before, clock_.stamp(before).utcOffset};
    if (const int code = new_.add(row, time, wall.has_value())) return code;
    at_.lastId = row.id;
    at_.lastTime = time.utc;
    return SQLITE_OK;
}

Step Converter::copyPage(long long& rows) {
    if (!IsVolumeSpaceEnough(folderOf(newPath_), kReserve)) {
        return failed("the volume of " + newPath_ + " has less than " + std::to_string(kReserve >> 20) +
                      " MiB left; make room and run this again to go on");
    }
    if (const int code = new_.begin()) return cannotWrite(code);
    if (const int code = old_.seek(at_.lastId, options_.pageRows)) return cannotRead(code);
    OldRow row;
    size_t bytes = 0;
    int code = old_.next(row);
    for (; code == Statement::kRow && bytes < kPageBytes; code = old_.next(row)) {
        if (const int written = copyRow(row)) return cannotWrite(written);
        bytes += row.message.size();
        ++rows;
    }
    old_.rest();
    if (code != Statement::kRow && code != Statement::kDone) return cannotRead(code);
    if (const int written = new_.commit()) return cannotWrite(written);
    at_.rows += rows;
    return Step::kDone;
}

Step Converter::copyRows() {
    if (!at_.lastTime) {
        if (const Step step = findFirstTime(); step != Step::kDone) return step;
    }
    for (;;) {
        watch_.progress(UpgradeStage::kConverting, at_.rows, total_);
        if (watch_.stopWanted()) return Step::kStopped;
        long long rows = 0;
        const Step step = copyPage(rows);
        old_.rest();
        if (step != Step::kDone) new_.rollBack();
        if (step != Step::kDone || rows == 0) return step;
    }
}

// What an earlier run has compared holds as long as nobody has touched the old file since. Whoever puts another
// file's contents and times in it changes the time of its last change; rows in a write-ahead log change none.
bool Converter::comparedBefore() {
    struct stat old {};
    struct stat made {};
    struct stat log {};
    if (::stat(old_.path().c_str(), &old) != 0 || ::stat(newPath_.c_str(), &made) != 0) return false;
    if (::stat((old_.path() + "-wal").c_str(), &log) == 0 && log.st_size > 0) return false;
    return old.st_ctim.tv_sec < made.st_mtim.tv_sec ||
           (old.st_ctim.tv_sec == made.st_mtim.tv_sec && old.st_ctim.tv_nsec < made.st_mtim.tv_nsec);
}

Step Converter::changedMeanwhile() {
    result_.outcome.error = old_.path() + " is being written to; stop whoever does and run this again";
    const int code = new_.writeVerified(0);
    return code == 0 ? Step::kAgain : cannotWrite(code);
}

// The old file is locked meanwhile: were it written to just before, the new one would be the younger of the two,
// and the next run would take its word for rows that are others now.
Step Converter::remember(long long version, long long compared) {
    Transaction reading(old_.connection());
    if (const int code = reading.beginDeferred()) return cannotRead(code);
    if (old_.version() != version) return changedMeanwhile();
    const int code = new_.writeVerified(compared);
    return code == 0 ? Step::kDone : cannotWrite(code);
}

Step Converter::compareRows(long long version) {
    long long verified = 0;
    if (const int code = new_.readVerified(verified)) return cannotWrite(code);
    Verification verification(old_, newPath_);
    Comparison found = verification.begin(verified <= at_.rows ? verified : 0);
    while (found == Comparison::kEqual && verification.compared() < at_.rows) {
        watch_.progress(UpgradeStage::kVerifying, verification.compared(), total_);
        if (watch_.stopWanted()) return Step::kStopped;
        found = verification.next(std::min(options_.pageRows, at_.rows - verification.compared()));
        if (found != Comparison::kEqual) break;
        if (const Step step = remember(version, verification.compared()); step != Step::kDone) return step;
    }
    watch_.progress(UpgradeStage::kVerifying, verification.compared(), total_);
    if (found == Comparison::kEqual) return Step::kDone;
    (void)failed(verification.error());
    if (found == Comparison::kFailed) return Step::kFailed;
    // Left by an upgrade of another state of the old file, perhaps: nothing of it can be trusted.
    new_.close();
    removeDatabase(newPath_);
    return std::exchange(madeAnew_, true) ? Step::kFailed : Step::kAgain;
}

// The file as readers and the log writer expect it, without what an upgrade keeps in it, and with nothing beside
// it.
Step Converter::settle() {
    if (const int code = new_.writeVerified(0)) return cannotWrite(code);
    new_.close();
    const std::string journal = newPath_ + "-journal";  // SQLite leaves it empty
    if (::unlink(journal.c_str()) != 0 && errno != ENOENT) {
        return failed("cannot remove " + journal + ": " + strerror(errno));
    }
    if (!syncFolder(folderOf(newPath_)))
        return failed("cannot write " + folderOf(newPath_) + ": " + strerror(errno));
    return Step::kDone;
}

Step Converter::round() {
    clock_.refresh();
    std::string oldPath = old_.path();
    std::string newPath = newPath_;
    if (old_.connection().hasMoved()) return failed(movedMeanwhile(old_.path()));
    total_ = SyslogUpdaterOldDbTotalGet(oldPath);
    if (total_ < 0) {
        return failed("cannot count the rows of " + oldPath + ", or there are more than 2,147,483,647 of them");
    }
    // Asked before anything is written to the new file, which would make it the younger of the two.
    const auto before = old_.version();
    const bool holds = comparedBefore();
    if (const Step step = openNew(); step != Step::kDone) return step;
    if (const int code = holds ? SQLITE_OK : new_.writeVerified(0)) return cannotWrite(code);
    if (const Step step = copyRows(); step != Step::kDone) return step;
    if (old_.hasHostIndex()) {
        if (const int code = new_.addHostIndex()) return cannotWrite(code);
    }
    const auto version = old_.version();
    if (!version) return cannotRead(SQLITE_IOERR);
    if (const int code = version == before ? SQLITE_OK : new_.writeVerified(0)) return cannotWrite(code);
    if (const Step step = compareRows(*version); step != Step::kDone) return step;
    if (old_.version() != version || !SyslogUpdaterUpdCompete(oldPath, newPath)) return changedMeanwhile();
    result_.oldVersion = *version;
    result_.outcome.rows = at_.rows;
    return settle();
}

Conversion Converter::run() {
    if (const int error = readBounded(options_.schemaFile, kMostSchema, schema_)) {
        (void)failed("cannot read the layout of log databases " + options_.schemaFile + ": " + strerror(error));
        return result_;
    }
    Step step = Step::kAgain;
    for (int rounds = 0; step == Step::kAgain && rounds < kRounds; ++rounds)
        step = round();
    new_.close();
    if (step == Step::kDone) result_.outcome.error.clear();
    if (step == Step::kDone) result_.outcome.end = UpgradeEnd::kDone;
    if (step == Step::kStopped) result_.outcome.end = UpgradeEnd::kStopped;
    return result_;
}

}  // namespace

Conversion convertDatabase(OldDatabase& old, const std::string& newPath, UpgradeWatch& watch,
                           const ConversionOptions& options) {
    return Converter(old, newPath, watch, options).run();
}

}  // namespace ombrel
