// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The texts that readers of a log database see of a row, and their checksum.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace ombrel {

/// Day, time, severity, host, facility, program, message: the columns of a text export.
using RenderedRow = std::array<std::string_view, 7>;

struct RowChecksum {
    std::uint64_t low = 0;
    std::uint64_t high = 0;
    bool operator==(const RowChecksum&) const = default;
};

class RowHasher {
public:
    /// Tells apart where one text ends and the next begins, and the rows by their ids.
    RowChecksum of(long long id, const RenderedRow& row);

private:
    std::string bytes_;  // keeps its memory
};

}  // namespace ombrel
