// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// One database that is read to its end whatever becomes of it. When it is archived in between, the rest of it is
// read under the name that it has got, and once that is gone as well, from the file itself, which is held open.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/ombrel/held_file.h"
#include "tools/ombrel/log_reader.h"

namespace ombrel {

class HeldDatabase {
public:
    /// The filter has to stay as long as the object.
    HeldDatabase(std::string path, const LogFilter& filter) : path_(std::move(path)), filter_(filter) {}

    /// False, with errno set, when there is no such file or it cannot be opened.
    bool open() { return file_.open(path_); }

    /// Takes the last wanted rows, newest first, and goes on behind all rows that there are now. False: error().
    bool takeLast(std::size_t count, std::vector<LogRow>& rows);
    /// Hands over the wanted rows, oldest first, behind those that were handed over already. At most that many
    /// stretches (0: all that there are). kEnd: there are no more now, see isFinished().
    LogReader::End read(const LogReader::Sink& sink, unsigned stretches = 0);
    /// Rows looked at by read(), wanted or not, as near as ids tell.
    [[nodiscard]] unsigned long long rowsPassed() const { return passed_ + (reader_ ? reader_->rowsPassed() : 0); }

    /// Whether it was moved away, or removed, and read to its end: no further row comes.
    [[nodiscard]] bool isFinished() const { return isFinished_; }
    /// The name that it was given last; its path as long as it has that.
    [[nodiscard]] std::string nameNow() const { return file_.name().path; }
    [[nodiscard]] bool isAt(const std::string& path) const { return file_.isAt(path); }
    [[nodiscard]] const std::string& path() const { return path_; }
    /// "PATH: WHY".
    [[nodiscard]] const std::string& error() const { return error_; }

private:
    enum class Try { kDone, kAgain };
    Try takeLastOnce(std::size_t count, std::vector<LogRow>& rows);
    Try readOnce(const LogReader::Sink& sink, unsigned stretches, LogReader::End& end);
    void dropReader();
    bool prepareReader(bool isMoved);
    [[nodiscard]] bool isOfFile(const LogReader& reader) const;
    void fail(const std::string& why) { error_ = path_ + ": " + why; }

    std::string path_;
    const LogFilter& filter_;
    HeldFile file_;
    std::unique_ptr<TemporaryCopy> copy_;
    std::optional<LogReader> reader_;
    long long position_ = 0;         // the id up to which rows are done with, while there is no reader
    unsigned long long passed_ = 0;  // by readers before this one
    bool isFinished_ = false;
    std::string error_;
};

}  // namespace ombrel
