// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A batch as a receiver sends it. Each line is
//
//   ID SP RECEIVED SP SENDER SP LENGTH SP BYTES LF
//
// ID is 8 hexadecimal digits, "@" and 16 hexadecimal digits; RECEIVED seconds since the epoch; SENDER the
// address of the sender; LENGTH the number of BYTES, which may hold any byte, line breaks too, so that no
// sender can forge a line. Where a line break has ended the message already, LENGTH is "-": the BYTES then
// reach up to the next one. Pure; the views point into the body.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ombrel {

/// What names one line for good: a receiver that sends it again gives it the same id.
struct ReceiptId {
    std::uint32_t host = 0;
    std::uint64_t number = 0;
    friend bool operator==(const ReceiptId&, const ReceiptId&) = default;
    friend bool operator<(const ReceiptId& a, const ReceiptId& b) noexcept {
        return a.host != b.host ? a.host < b.host : a.number < b.number;
    }
};

struct BatchLine {
    ReceiptId id;
    std::int64_t received = 0;
    std::string_view sender;
    std::string_view text;
};

/// The number of lines of a batch that is sent because it is full, not because time was up: more wait behind it.
constexpr size_t kFullBatchLines = 10'000;
/// Likewise in bytes of text; a batch is larger by at most the frame of its lines and one message.
constexpr size_t kFullBatchBytes = 8U << 20;

/// Reads a whole batch. False when any byte of it does not fit; `reason` then says where, `lines` is
/// unspecified.
bool readBatch(std::string_view body, std::vector<BatchLine>& lines, std::string& reason);

}  // namespace ombrel
