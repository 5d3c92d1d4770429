// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/search_source.h"

#include <sys/stat.h>

#include "tools/ombrel/archive_name.h"
#include "tools/ombrel/time_words.h"

namespace ombrel {

namespace {

// A file is archived once and put into a ZIP file once; anything beyond that is no archiving.
constexpr int kMostMoves = 4;

// Names may say nothing of the rows: days that are none, and the one that stands for "no day is known".
long long newestOf(const LogFile& file) {
    if (file.lastDay.empty() || file.lastDay == kUnknownDay) return LLONG_MAX;
    return timeOfWords(file.lastDay, 0, DayEnd::kLastSecond).value_or(LLONG_MAX);
}

bool isThere(const std::string& path) {
    struct stat64 status {};
    return ::stat64(path.c_str(), &status) == 0;
}

std::size_t bytesOf(const LogRow& row) {
    return sizeof row + row.message.size() + row.host.size() + row.program.size();
}

}  // namespace

SearchSource::SearchSource(LogFile file, SearchWorld& world)
    : world_(world),
      path_(std::move(file.path)),
      isWorking_(file.kind == LogFile::Kind::kWorking),
      isZip_(file.kind == LogFile::Kind::kZip),
      bytes_(file.bytes),
      newest_(newestOf(file)) {
}

SearchSource::Step SearchSource::fail(const std::string& error) {
    error_ = error;
    return Step::kFailed;
}

void SearchSource::open(const std::string& path) {
    reader_ = std::make_unique<LogReader>(path, world_.filter, ReadOrder::kNewestFirst);
    if (nextId_) reader_->startBefore(*nextId_);
    nextId_.reset();
}

bool SearchSource::begin() {
    if (!isZip_) {
        open(path_);
        return true;
    }
    unpacked_ = world_.scratch.unpack(path_, entry_, [this] { return !world_.isStopped; });
    error_ = unpacked_.error;
    if (unpacked_.path == nullptr) return false;
    open(*unpacked_.path);
    return true;
}

SearchSource::Step SearchSource::run(const SearchRoom& room, std::vector<LogRow>& rows) {
    if (reader_ == nullptr && !begin()) return error_.empty() ? Step::kEnd : Step::kFailed;
    std::size_t bytes = 0;
    const auto take = [&](LogRow& row) {
        bytes += bytesOf(row);
        rows.push_back(std::move(row));
        return rows.size() < room.rows && bytes < room.bytes && !world_.isStopped;
    };
    if (!world_.filter.hasPattern()) reader_->takeAtMost(room.rows);
    switch (reader_->read(take, 1)) {
        case LogReader::End::kStopped:
            return Step::kMore;
        case LogReader::End::kEnd:
            return reader_->isGone() ? follow() : leaveDatabase();
        case LogReader::End::kFailed:
            break;
    }
    // A scratch file has a name that nobody else knows.
    return fail(isZip_ ? path_ + ": the database in it" + reader_->error().substr(reader_->path().size())
                       : reader_->error());
}

/// A ZIP file may hold another one.
SearchSource::Step SearchSource::leaveDatabase() {
    passed_ += reader_->rowsPassed();
    reader_.reset();
    if (!isZip_ || unpacked_.isLast) {
        unpacked_ = {};
        return Step::kEnd;
    }
    unpacked_ = {};
    ++entry_;
    return Step::kMore;
}

void SearchSource::putAway() {
    if (reader_ != nullptr) {
        nextId_ = reader_->nextId();
        passed_ += reader_->rowsPassed();
    }
    reader_.reset();
    unpacked_ = {};
}

/// The ZIP file that was made of an archive since the search began.
std::optional<std::string> SearchSource::zippedTwin() const {
    constexpr std::string_view kExtension = ".DB";
    constexpr int kMostNames = 10;
    if (!path_.ends_with(kExtension)) return std::nullopt;
    const std::string stem = path_.substr(0, path_.size() - kExtension.size());
    for (int number = 0; number < kMostNames; ++number) {
        const std::string path = stem + (number == 0 ? "" : "_" + std::to_string(number)) + ".ZIP";
        if (!world_.wasThere(path) && isThere(path)) return path;
    }
    return std::nullopt;
}

/// The rows that are left are read where they are now.
SearchSource::Step SearchSource::follow() {
    const auto identity = reader_->identity();
    putAway();
    if (isZip_) return fail(path_ + ": the database that was taken out of it is gone");
    if (isWorking_ && !identity) return Step::kEnd;  // there was none
    if (++moves_ > kMostMoves) return fail(path_ + ": it is moved again and again");
    if (auto archived = identity ? world_.findArchived(*identity) : std::nullopt) {
        path_ = std::move(*archived);
        return Step::kMore;
    }
    if (auto zipped = zippedTwin()) {
        path_ = std::move(*zipped);
        isZip_ = true;
        return Step::kMore;
    }
    return fail(path_ + ": it was moved or removed while it was searched; search again for what else was in it");
}

unsigned long long SearchSource::rowsPassed() const {
    return passed_ + (reader_ != nullptr ? reader_->rowsPassed() : 0);
}

double SearchSource::share() const {
    const auto passed = static_cast<double>(rowsPassed());
    if (reader_ == nullptr || passed == 0) return 0;
    return passed / (passed + static_cast<double>(reader_->nextId() - 1));
}

}  // namespace ombrel
