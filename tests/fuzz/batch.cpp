// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Bodies of any bytes: what is read as a batch lies within the body, each text ended by its line break, and
// its receipt ids survive being stored.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "receiver/message/batch_frame.h"
#include "receiver/message/receipt_ids.h"

using namespace ombrel;

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

// The least that lines of such senders and texts take.
std::size_t leastSizeOf(const std::vector<BatchLine>& lines) {
    std::size_t size = 0;
    for (const BatchLine& line : lines)
        size += 25 + 4 + line.sender.size() + line.text.size() + 1;
    return size;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view body(reinterpret_cast<const char*>(data), size);
    std::vector<BatchLine> lines;
    std::string reason;
    if (!readBatch(body, lines, reason)) {
        require(!reason.empty());
        return 0;
    }
    require(leastSizeOf(lines) <= body.size());
    ReceiptIds ids;
    for (const BatchLine& line : lines) {
        require(line.received >= 0 && !line.sender.empty());
        require(line.text.data() >= body.data() &&
                line.text.data() + line.text.size() < body.data() + body.size());
        require(line.text.data()[line.text.size()] == '\n');
        ids.add(line.id);
    }
    ids.seal();
    const auto again = ReceiptIds::unpack(ids.pack());
    require(again.has_value() && again->pack() == ids.pack());
    for (const BatchLine& line : lines)
        require(again->contains(line.id));
    return 0;
}
