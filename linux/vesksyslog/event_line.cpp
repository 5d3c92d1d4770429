// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/vesksyslog/event_line.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace ombrel {

namespace {

// The last bytes of a code point in UTF-8, six bits each.
void appendContinuation(std::string& out, std::uint32_t codePoint, int count) {
    for (int shift = (count - 1) * 6; shift >= 0; shift -= 6)
        out += static_cast<char>(0x80U | (codePoint >> shift & 0x3fU));
}

void appendUtf8(std::string& out, std::uint32_t codePoint) {
    if (codePoint < 0x80) {
        out += static_cast<char>(codePoint);
    } else if (codePoint < 0x800) {
        out += static_cast<char>(0xc0U | codePoint >> 6);
        appendContinuation(out, codePoint, 1);
    } else if (codePoint < 0x10000) {
        out += static_cast<char>(0xe0U | codePoint >> 12);
        appendContinuation(out, codePoint, 2);
    } else {
        out += static_cast<char>(0xf0U | codePoint >> 18);
        appendContinuation(out, codePoint, 3);
    }
}

/// Walks through one line. Every step is false, and the place of no use any more, when the line is not as it
/// should be there.
class Reader {
public:
    explicit Reader(std::string_view rest) : rest_(rest) {}

    bool take(char expected) {
        skipBlanks();
        if (rest_.empty() || rest_.front() != expected) return false;
        rest_.remove_prefix(1);
        return true;
    }
    bool atEnd() {
        skipBlanks();
        return rest_.empty();
    }
    bool isAtString() {
        skipBlanks();
        return rest_.starts_with('"');
    }
    bool string(std::string& out) {
        out.clear();
        if (!take('"')) return false;
        while (!rest_.empty()) {
            const char next = rest_.front();
            rest_.remove_prefix(1);
            if (next == '"') return true;
            if (static_cast<unsigned char>(next) < 0x20) return false;
            if (next != '\\') {
                out += next;
            } else if (!escape(out)) {
                return false;
            }
        }
        return false;
    }
    bool number(long long& out) {
        skipBlanks();
        const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), out);
        if (error != std::errc()) return false;
        rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
        return true;
    }

private:
    void skipBlanks() { rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r"), rest_.size())); }

    bool escape(std::string& out) {
        constexpr std::string_view kLetters = "\"\\/bfnrt";
        constexpr std::string_view kMeanings = "\"\\/\b\f\n\r\t";
        if (rest_.empty()) return false;
        const char letter = rest_.front();
        rest_.remove_prefix(1);
        if (letter == 'u') return unicode(out);
        const std::size_t which = kLetters.find(letter);
        if (which == std::string_view::npos) return false;
        out += kMeanings[which];
        return true;
    }
    // RFC 8259, 7: what lies above U+FFFF stands as two surrogates.
    bool unicode(std::string& out) {
        std::uint32_t first = 0;
        if (!fourDigits(first) || (first >= 0xdc00 && first <= 0xdfff)) return false;
        if (first < 0xd800 || first > 0xdbff) {
            appendUtf8(out, first);
            return true;
        }
        std::uint32_t second = 0;
        if (!rest_.starts_with("\\u")) return false;
        rest_.remove_prefix(2);
        if (!fourDigits(second) || second < 0xdc00 || second > 0xdfff) return false;
        appendUtf8(out, 0x10000 + ((first - 0xd800) << 10) + (second - 0xdc00));
        return true;
    }
    bool fourDigits(std::uint32_t& value) {
        if (rest_.size() < 4) return false;
        const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + 4, value, 16);
        if (error != std::errc() || end != rest_.data() + 4) return false;
        rest_.remove_prefix(4);
        return true;
    }

    std::string_view rest_;
};

bool readMember(Reader& reader, EventLine& line) {
    std::string name;
    if (!reader.string(name) || !reader.take(':')) return false;
    if (!reader.isAtString()) {
        long long number = 0;
        if (!reader.number(number)) return false;
        if (name == "exit_code" && number >= 0 && number <= 255) line.exitCode = static_cast<int>(number);
        return true;
    }
    std::string ignored;
    std::string* const value = name == "event"    ? &line.event
                               : name == "text"   ? &line.text
                               : name == "job"    ? &line.job
                               : name == "signal" ? &line.signal
                                                  : &ignored;
    return reader.string(*value);
}

}  // namespace

std::optional<EventLine> readEventLine(std::string_view line) {
    if (line.size() > kLongestEventLine) return std::nullopt;
    Reader reader(line);
    EventLine result;
    if (!reader.take('{')) return std::nullopt;
    do {
        if (!readMember(reader, result)) return std::nullopt;
    } while (reader.take(','));
    if (!reader.take('}') || !reader.atEnd() || result.event.empty()) return std::nullopt;
    return result;
}

}  // namespace ombrel
