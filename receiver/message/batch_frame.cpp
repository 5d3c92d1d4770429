// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/message/batch_frame.h"

#include <charconv>
#include <system_error>

namespace ombrel {

namespace {

// IPv6 with a zone, and something to spare.
constexpr size_t kMaxSender = 64;

template <typename Number>
bool takeNumber(std::string_view& rest, char end, int base, Number& value) {
    const char* const last = rest.data() + rest.size();
    const auto [stop, error] = std::from_chars(rest.data(), last, value, base);
    if (error != std::errc() || stop == last || *stop != end) return false;
    rest.remove_prefix(static_cast<size_t>(stop - rest.data()) + 1);
    return true;
}

bool takeId(std::string_view& rest, ReceiptId& id) {
    const std::string_view before = rest;
    if (!takeNumber(rest, '@', 16, id.host) || before.size() - rest.size() != 9) return false;
    const std::string_view number = rest;
    return takeNumber(rest, ' ', 16, id.number) && number.size() - rest.size() == 17;
}

bool takeSender(std::string_view& rest, std::string_view& sender) {
    const size_t end = rest.substr(0, kMaxSender + 1).find(' ');
    if (end == 0 || end == std::string_view::npos) return false;
    sender = rest.substr(0, end);
    rest.remove_prefix(end + 1);
    return sender.find_first_not_of("0123456789abcdefABCDEF.:%") == std::string_view::npos;
}

// Behind the length; the line break behind the text is taken too. Null when it is there.
const char* takeCountedText(std::string_view& rest, std::string_view& text) {
    size_t length = 0;
    if (!takeNumber(rest, ' ', 10, length)) return "the length";
    if (rest.size() <= length) return "the text, which is shorter than its length,";
    if (rest[length] != '\n') return "the end of the line";
    text = rest.substr(0, length);
    rest.remove_prefix(length + 1);
    return nullptr;
}

const char* takeTextLine(std::string_view& rest, std::string_view& text) {
    const size_t end = rest.find('\n');
    if (end == std::string_view::npos) return "the end of the line";
    text = rest.substr(0, end);
    rest.remove_prefix(end + 1);
    return nullptr;
}

// Null when the line is well formed, otherwise what is wrong with it.
const char* takeLine(std::string_view& rest, BatchLine& line) {
    if (!takeId(rest, line.id)) return "the receipt id";
    if (!takeNumber(rest, ' ', 10, line.received) || line.received < 0) return "the receive time";
    if (!takeSender(rest, line.sender)) return "the sender's address";
    if (!rest.starts_with("- ")) return takeCountedText(rest, line.text);
    rest.remove_prefix(2);
    return takeTextLine(rest, line.text);
}

}  // namespace

bool readBatch(std::string_view body, std::vector<BatchLine>& lines, std::string& reason) {
    lines.clear();
    lines.reserve(kFullBatchLines);
    std::string_view rest = body;
    while (!rest.empty()) {
        BatchLine line;
        const size_t position = body.size() - rest.size();
        if (const char* const wrong = takeLine(rest, line)) {
            reason = std::string(wrong) + " of line " + std::to_string(lines.size() + 1) + " (byte " +
                     std::to_string(position) + ") cannot be read";
            return false;
        }
        lines.push_back(line);
    }
    return true;
}

}  // namespace ombrel
