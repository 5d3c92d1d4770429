// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Lines of the event file of any bytes: reading them is harmless, and what is read can be written and read again.
#include "linux/vesksyslog/event_line.h"

#include <syslog.h>

#include <cstdint>
#include <cstdlib>

#include "linux/common/text_escape.h"
#include "tools/ombrel-notify/notice_policy.h"

using namespace ombrel;

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

bool isPrintable(std::string_view text) {
    return escapeForLine(text) == text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view line(reinterpret_cast<const char*>(data), size);
    const auto event = readEventLine(line);
    if (!event) return 0;
    require(!event->event.empty() && line.size() <= kLongestEventLine);
    NoticePolicy policy(std::chrono::seconds(1), [](int priority, const std::string& text) {
        require(priority == LOG_ERR && text.size() < 1024 && isPrintable(text));
    });
    policy.event(*event, 0);
    const auto again = readEventLine("{\"event\":" + quoteJson(event->event) + "}");
    const auto third = again ? readEventLine("{\"event\":" + quoteJson(again->event) + "}") : std::nullopt;
    // Bytes that are no UTF-8 are replaced once; the longest line may have become too long by escaping.
    if (third) require(third->event == again->event);
    return 0;
}
