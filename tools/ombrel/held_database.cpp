// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/held_database.h"

#include <cerrno>
#include <cstring>

namespace ombrel {

namespace {

// Renamed in between once is likely, twice is not.
constexpr int kTries = 20;
constexpr const char* kRestless = "is renamed again and again";

}  // namespace

/// Before its first reading a reader belongs to no file. A copy is a file of its own.
bool HeldDatabase::isOfFile(const LogReader& reader) const {
    return copy_ != nullptr || !reader.identity() || *reader.identity() == file_.identity();
}

bool HeldDatabase::takeLast(std::size_t count, std::vector<LogRow>& rows) {
    for (int tries = 0; tries < kTries; ++tries) {
        rows.clear();
        error_.clear();
        if (takeLastOnce(count, rows) == Try::kDone) return error_.empty();
    }
    fail(kRestless);
    return false;
}

HeldDatabase::Try HeldDatabase::takeLastOnce(std::size_t count, std::vector<LogRow>& rows) {
    static const LogFilter everything;
    const HeldFile::Name now = file_.name();
    if (now.isRemoved) {
        isFinished_ = true;  // what was in it came before
        return Try::kDone;
    }
    const std::string name = file_.isAt(path_) ? path_ : now.path;
    long long last = 0;
    const auto failed = [this](const LogReader& reader, LogReader::End end) {
        if (end == LogReader::End::kFailed) error_ = reader.error();
        return end == LogReader::End::kFailed;
    };
    LogReader newest(name, everything, ReadOrder::kNewestFirst);
    const auto found = newest.read([&last](LogRow& row) {
        last = row.id;
        return false;
    });
    if (failed(newest, found)) return Try::kDone;
    if (newest.isGone() || !isOfFile(newest)) return Try::kAgain;
    position_ = last;
    if (count == 0) return Try::kDone;
    LogReader wanted(name, filter_, ReadOrder::kNewestFirst);
    wanted.startBefore(last + 1);
    const auto end = wanted.read([&rows, count](LogRow& row) {
        rows.push_back(std::move(row));
        return rows.size() < count;
    });
    if (failed(wanted, end)) return Try::kDone;
    return wanted.isGone() || !isOfFile(wanted) ? Try::kAgain : Try::kDone;
}

/// A reader for the name that the file has now. False: error_.
bool HeldDatabase::prepareReader(bool isMoved) {
    std::string name = path_;
    if (copy_ != nullptr) {
        name = copy_->path();
    } else if (isMoved) {
        const HeldFile::Name now = file_.name();
        name = now.path;
        if (now.isRemoved) {
            copy_ = std::make_unique<TemporaryCopy>();
            if (!copy_->copy(file_.fd())) {
                fail(std::string("it is gone, and what was left of it cannot be copied: ") + std::strerror(errno));
                return false;
            }
            name = copy_->path();
        }
    }
    if (reader_ && reader_->path() == name) return true;
    if (reader_) dropReader();
    reader_.emplace(name, filter_, ReadOrder::kOldestFirst);
    reader_->startBehind(position_);
    return true;
}

/// The next one goes on where this one is.
void HeldDatabase::dropReader() {
    passed_ += reader_->rowsPassed();
    position_ = reader_->nextId();
    reader_.reset();
}

HeldDatabase::Try HeldDatabase::readOnce(const LogReader::Sink& sink, unsigned stretches, LogReader::End& end) {
    // Asked before the reading: what is moved away grows no more.
    const bool isMoved = copy_ != nullptr || !file_.isAt(path_);
    if (!prepareReader(isMoved)) {
        end = LogReader::End::kFailed;
        return Try::kDone;
    }
    end = reader_->read([this, &sink](LogRow& row) { return isOfFile(*reader_) && sink(row); }, stretches);
    if (!isOfFile(*reader_)) {  // a new file has taken the place of this one, whose rest is somewhere else
        reader_.reset();
        return Try::kAgain;
    }
    if (end == LogReader::End::kFailed) error_ = reader_->error();
    if (end != LogReader::End::kEnd) return Try::kDone;
    if (reader_->isGone()) {
        dropReader();
        return Try::kAgain;
    }
    isFinished_ = isMoved;
    return Try::kDone;
}

LogReader::End HeldDatabase::read(const LogReader::Sink& sink, unsigned stretches) {
    error_.clear();
    for (int tries = 0; tries < kTries; ++tries) {
        LogReader::End end = LogReader::End::kEnd;
        if (readOnce(sink, stretches, end) == Try::kDone) return end;
    }
    fail(kRestless);
    return LogReader::End::kFailed;
}

}  // namespace ombrel
