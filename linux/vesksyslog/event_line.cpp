// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/vesksyslog/event_line.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
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

/// The place of a text that has one of its own.
std::string* placeOf(std::string_view name, EventLine& line) {
    return name == "time"     ? &line.time
           : name == "event"  ? &line.event
           : name == "text"   ? &line.text
           : name == "job"    ? &line.job
           : name == "signal" ? &line.signal
                              : nullptr;
}

bool readMember(Reader& reader, EventLine& line) {
    std::string name;
    if (!reader.string(name) || !reader.take(':')) return false;
    if (!reader.isAtString()) {
        long long number = 0;
        if (!reader.number(number)) return false;
        if (name == "exit_code" && number >= 0 && number <= 255) line.exitCode = static_cast<int>(number);
        line.more.emplace_back(std::move(name), number);
        return true;
    }
    std::string value;
    if (!reader.string(value)) return false;
    std::string* const place = placeOf(name, line);
    if (place != nullptr) *place = value;
    const bool isUsual = place == &line.time || place == &line.event || place == &line.text;
    if (!isUsual) line.more.emplace_back(std::move(name), std::move(value));
    return true;
}

/// Digits alone, so that there is no sign.
bool readDigits(std::string_view text, int& value) {
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    if (!std::all_of(text.begin(), text.end(), isDigit)) return false;
    return std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc();
}

/// Seconds east of Greenwich.
bool readOffset(std::string_view text, long long& seconds) {
    seconds = 0;
    if (text == "Z") return true;
    int hours = 0;
    int minutes = 0;
    if (text.size() != 6 || (text[0] != '+' && text[0] != '-') || text[3] != ':') return false;
    if (!readDigits(text.substr(1, 2), hours) || !readDigits(text.substr(4, 2), minutes)) return false;
    if (hours > 23 || minutes > 59) return false;
    seconds = (text[0] == '-' ? -60LL : 60LL) * (hours * 60 + minutes);
    return true;
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

std::optional<long long> secondsOfEvent(std::string_view time) {
    constexpr std::string_view kForm = "0000-00-00T00:00:00";
    if (time.size() <= kForm.size()) return std::nullopt;
    for (std::size_t i = 0; i < kForm.size(); ++i) {
        if (kForm[i] != '0' && time[i] != kForm[i]) return std::nullopt;
    }
    std::array<int, 6> parts{};  // year, month, day, hour, minute, second
    constexpr std::array<std::size_t, 6> kAt = {0, 5, 8, 11, 14, 17};
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (!readDigits(time.substr(kAt[i], i == 0 ? 4 : 2), parts[i])) return std::nullopt;
    }
    const std::chrono::year_month_day day{std::chrono::year(parts[0]),
                                          std::chrono::month(static_cast<unsigned>(parts[1])),
                                          std::chrono::day(static_cast<unsigned>(parts[2]))};
    long long offset = 0;
    if (!day.ok() || parts[3] > 23 || parts[4] > 59 || parts[5] > 60) return std::nullopt;
    if (!readOffset(time.substr(kForm.size()), offset)) return std::nullopt;
    const long long days = std::chrono::sys_days(day).time_since_epoch().count();
    return ((days * 24 + parts[3]) * 60 + parts[4]) * 60 + parts[5] - offset;
}

}  // namespace ombrel
