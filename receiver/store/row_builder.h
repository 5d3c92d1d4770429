// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Makes rows of messages as they came.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "receiver/message/batch_frame.h"
#include "receiver/message/local_clock.h"
#include "receiver/store/log_row.h"

namespace ombrel {

/// Keeps what the rows need besides the text they were made of; must outlive them.
class RowBuilder {
public:
    explicit RowBuilder(LocalClock& clock) : clock_(clock) {}

    /// The row of one line that was received; nothing for a line without any text.
    std::optional<LogRow> received(const BatchLine& line);
    /// Likewise of a line that this machine has logged itself, whatever host the line names. `machine` is this
    /// machine's name.
    std::optional<LogRow> ofThisMachine(const BatchLine& line, std::string_view machine);
    /// Likewise of a line that is kept whole: all of it but its line end is the message, of the address that sent
    /// it at the time it came. What its PRI, time or name may say stays text.
    std::optional<LogRow> whole(const BatchLine& line);
    /// The row of one line of a file. Its own time is the one it names, a missing year being chosen nearest
    /// to `reference`; a line that names none gets `reference`.
    std::optional<LogRow> imported(std::string_view text, std::string_view sender, std::int64_t reference,
                                   std::optional<int> year, std::int64_t now);
    void clear() noexcept { kept_.clear(); }

private:
    static LogRow frameOf(const BatchLine& line);
    LogRow rowOf(const BatchLine& line, HostField host);
    std::string_view storable(std::string_view text);

    LocalClock& clock_;
    std::deque<std::string> kept_;
};

}  // namespace ombrel
