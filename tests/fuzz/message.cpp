// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Messages of any bytes: everything that is found in one lies within it, within its bounds, and no letter or
// digit of it is in none of the parts.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "receiver/message/local_clock.h"
#include "receiver/message/message_parser.h"

using namespace ombrel;

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

void requireWithin(std::string_view part, std::string_view whole) {
    if (part.empty()) return;
    require(part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size());
}

// Whatever follows the program belongs to some part, up to the end: only line ends are dropped there.
void requireTail(const ParsedMessage& parsed, std::string_view raw) {
    if (parsed.message.empty()) return;
    std::string_view tail(parsed.message.data(),
                          static_cast<std::size_t>(raw.data() + raw.size() - parsed.message.data()));
    tail.remove_prefix(parsed.message.size());
    require(tail.find_first_not_of("\r\n") == std::string_view::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view raw(reinterpret_cast<const char*>(data), size);
    const ParsedMessage parsed = parseMessage(raw);
    require(parsed.facility >= 0 && parsed.facility <= 23 && parsed.severity >= 0 && parsed.severity <= 7);
    require(!facilityName(parsed.facility).empty());
    require(parsed.host.size() <= kMaxHost && parsed.program.size() <= kMaxProgram);
    for (const std::string_view part : {parsed.host, parsed.program, parsed.processId, parsed.messageId,
                                        parsed.structuredData, parsed.message}) {
        requireWithin(part, raw);
    }
    requireTail(parsed, raw);
    if (parsed.time) {
        require(parsed.time->month >= 1 && parsed.time->month <= 12 && parsed.time->day >= 1 &&
                parsed.time->day <= 31);
        LocalClock clock;
        const std::int64_t sent = clock.resolve(*parsed.time, 1784548800);
        require(clock.stamp(ownTime(sent, 1784548800)).day.size() == 10);
        require(sent < 0 || clock.stamp(sent).day.size() >= 10);
    }
    return 0;
}
