// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What a search says: rows as they are found, what could not be read, and how far it is.
#pragma once

#include <chrono>
#include <string>

#include "tools/ombrel/context.h"
#include "tools/ombrel/progress.h"
#include "tools/ombrel/row_format.h"
#include "tools/ombrel/search_engine.h"

namespace ombrel {

class SearchOutput {
public:
    /// A `limit` of 0 is none.
    SearchOutput(const Context& context, RowFormat format, unsigned long long limit);

    /// Writes what the engine gives, to its end, the limit, or until nobody reads any more.
    void run(SearchEngine& engine);
    void complain(const std::string& what);
    /// The exit code, unless the rows could not be written.
    int end(int exitCode);

    [[nodiscard]] unsigned long long rows() const { return rows_; }
    [[nodiscard]] bool hasComplained() const { return hasComplained_; }

private:
    using Clock = std::chrono::steady_clock;
    [[nodiscard]] bool isFull() const { return limit_ > 0 && rows_ >= limit_; }
    bool write(const std::vector<LogRow>& rows);

    const Context& context_;
    RowFormat format_;
    unsigned long long limit_;
    unsigned long long rows_ = 0;
    bool hasComplained_ = false;
    bool isWritten_ = true;
    bool isReaderGone_ = false;
    Clock::time_point lastRow_ = Clock::now();
    Progress progress_;
};

}  // namespace ombrel
