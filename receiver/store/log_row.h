// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// One message on its way into a log database. The views belong to the body or the file it came from.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "receiver/message/batch_frame.h"
#include "receiver/message/message_parser.h"

namespace ombrel {

struct LogRow {
    ReceiptId id;
    std::int64_t time = 0;  ///< the row's own
    std::int64_t received = 0;
    std::optional<std::int64_t> sent;  ///< what the sender said, wherever its clock stands
    std::string_view host;             ///< the sender's address where the message names no host
    std::string_view sender;
    ParsedMessage parsed;
};

/// Rows of one receiver that are stored together.
struct RowBatch {
    std::string receiver;  ///< empty: the rows have no receipt ids
    std::vector<LogRow> rows;
};

}  // namespace ombrel
