// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/search_output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "tools/ombrel/answer.h"
#include "tools/ombrel/stop_signals.h"

namespace ombrel {

namespace {

constexpr std::size_t kRowsAtOnce = 512;
// How often the progress is brought up to date while nothing is found.
constexpr auto kPatience = std::chrono::milliseconds(100);
constexpr auto kQuiet = std::chrono::seconds(1);

}  // namespace

SearchOutput::SearchOutput(const Context& context, RowFormat format, unsigned long long limit)
    : context_(context), format_(format), limit_(limit), progress_(context.err, "searching", "") {
}

void SearchOutput::complain(const std::string& what) {
    progress_.clear();
    (void)ombrel::complain(0, what);
    hasComplained_ = true;
}

bool SearchOutput::write(const std::vector<LogRow>& rows) {
    progress_.clear();
    std::string text;
    if (rows_ == 0 && format_ == RowFormat::kCsv) text = csvHead();
    for (const LogRow& row : rows)
        text += rowLine(row, format_, context_.out);
    rows_ += rows.size();
    lastRow_ = Clock::now();
    // Whoever waits for the first rows shall see them while others are looked for.
    if (say(text) && std::fflush(stdout) == 0) return true;
    isReaderGone_ = errno == EPIPE;
    return false;
}

void SearchOutput::run(SearchEngine& engine) {
    for (bool isEnd = false; !isEnd && !isFull() && !stopAsked();) {
        const std::size_t left = limit_ > 0 ? static_cast<std::size_t>(limit_ - rows_) : kRowsAtOnce;
        const SearchEngine::News news = engine.next(std::min(left, kRowsAtOnce), kPatience);
        for (const std::string& error : news.errors)
            complain(error);
        isEnd = news.isEnd;
        if (!news.rows.empty()) {
            isWritten_ = write(news.rows);
            if (!isWritten_) break;
        } else if (!isEnd && Clock::now() - lastRow_ >= kQuiet) {
            const SearchEngine::Extent extent = engine.extent();
            progress_.show(extent.done, extent.total);
        }
    }
    progress_.clear();
    engine.stop();
}

int SearchOutput::end(int exitCode) {
    // Whoever has seen enough closes the pipe.
    return isReaderGone_ ? exitCode : endOfOutput(isWritten_, exitCode);
}

}  // namespace ombrel
