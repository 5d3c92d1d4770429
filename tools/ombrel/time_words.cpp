// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/time_words.h"

#include <algorithm>
#include <array>
#include <ctime>

namespace ombrel {

namespace {

constexpr long long kDaySeconds = 86400;

/// A clock on the wall in seconds since 1970-01-01 00:00 on that clock.
long long wallOf(long long seconds) {
    const auto moment = static_cast<time_t>(seconds);
    struct tm local {};
    return ::localtime_r(&moment, &local) == nullptr ? seconds : seconds + local.tm_gmtoff;
}

long long offsetAt(long long seconds) {
    return wallOf(seconds) - seconds;
}

/// The first moment in (low, high] at which clocks have the offset that holds at `high`.
long long changeBetween(long long low, long long high) {
    const long long behind = offsetAt(high);
    while (high - low > 1) {
        const long long middle = low + (high - low) / 2;
        (offsetAt(middle) == behind ? high : low) = middle;
    }
    return high;
}

// Where clocks go back a time comes twice: the first or the last one is meant, by the end that is asked for. Where
// they go forward some times never come: then the first moment behind them, or the last one before.
long long momentOf(long long wall, DayEnd end) {
    const long long before = offsetAt(wall - kDaySeconds);
    const long long behind = offsetAt(wall + kDaySeconds);
    const long long early = wall - std::max(before, behind);
    const long long late = wall - std::min(before, behind);
    const bool isEarly = wallOf(early) == wall;
    const bool isLate = wallOf(late) == wall;
    if (isEarly && (end == DayEnd::kFirstSecond || !isLate)) return early;
    if (isLate) return late;
    const long long change = changeBetween(early, late);
    return end == DayEnd::kFirstSecond ? change : change - 1;
}

/// Takes digits, separators and words off the front of a text.
class Words {
public:
    explicit Words(std::string_view text) : text_(text) {}

    [[nodiscard]] bool isAtEnd() const { return text_.empty(); }
    bool take(char wanted) {
        if (text_.empty() || text_.front() != wanted) return false;
        text_.remove_prefix(1);
        return true;
    }
    /// Exactly that many digits, within the bounds.
    std::optional<int> number(std::size_t digits, int least, int most) {
        if (text_.size() < digits) return std::nullopt;
        int value = 0;
        for (std::size_t i = 0; i < digits; ++i) {
            if (text_[i] < '0' || text_[i] > '9') return std::nullopt;
            value = value * 10 + (text_[i] - '0');
        }
        if (value < least || value > most) return std::nullopt;
        text_.remove_prefix(digits);
        return value;
    }
    void skipDigits() {
        while (!text_.empty() && text_.front() >= '0' && text_.front() <= '9')
            text_.remove_prefix(1);
    }

private:
    std::string_view text_;
};

/// "2024-03-03" as the beginning of that day on the wall.
std::optional<long long> readDay(Words& words) {
    const auto year = words.number(4, 1, 9999);
    if (!year || !words.take('-')) return std::nullopt;
    const auto month = words.number(2, 1, 12);
    if (!month || !words.take('-')) return std::nullopt;
    const auto day = words.number(2, 1, 31);
    if (!day) return std::nullopt;
    struct tm parts {};
    parts.tm_year = *year - 1900;
    parts.tm_mon = *month - 1;
    parts.tm_mday = *day;
    const long long seconds = ::timegm(&parts);
    if (parts.tm_mday != *day) return std::nullopt;  // 30 February
    return seconds;
}

struct Clock {
    long long seconds = 0;  // of the day
    bool hasSeconds = false;
};

/// "12:30", "12:30:05" or "12:30:05.123".
std::optional<Clock> readClock(Words& words) {
    const auto hour = words.number(2, 0, 23);
    if (!hour || !words.take(':')) return std::nullopt;
    const auto minute = words.number(2, 0, 59);
    if (!minute) return std::nullopt;
    Clock clock{*hour * 3600LL + *minute * 60LL, false};
    if (!words.take(':')) return clock;
    const auto second = words.number(2, 0, 59);
    if (!second) return std::nullopt;
    if (words.take('.')) {
        if (!words.number(1, 0, 9)) return std::nullopt;
        words.skipDigits();
    }
    return Clock{clock.seconds + *second, true};
}

/// "Z" or "+01:00" as seconds east of Greenwich.
std::optional<long long> readZone(Words& words) {
    if (words.take('Z') || words.take('z')) return 0;
    const long long sign = words.take('+') ? 1 : words.take('-') ? -1 : 0;
    if (sign == 0) return std::nullopt;
    const auto hours = words.number(2, 0, 23);
    if (!hours || !words.take(':')) return std::nullopt;
    const auto minutes = words.number(2, 0, 59);
    if (!minutes) return std::nullopt;
    return sign * (*hours * 3600LL + *minutes * 60LL);
}

/// "90m", "12h", "7d" or "30s".
std::optional<long long> readDuration(std::string_view words) {
    constexpr std::size_t kMostDigits = 9;
    if (words.size() < 2 || words.size() > kMostDigits + 1) return std::nullopt;
    long long value = 0;
    for (const char c : words.substr(0, words.size() - 1)) {
        if (c < '0' || c > '9') return std::nullopt;
        value = value * 10 + (c - '0');
    }
    switch (words.back()) {
        case 's':
            return value;
        case 'm':
            return value * 60;
        case 'h':
            return value * 3600;
        case 'd':
            return value * kDaySeconds;
        default:
            return std::nullopt;
    }
}

long long dayOn(long long wall, DayEnd end) {
    return momentOf(end == DayEnd::kFirstSecond ? wall : wall + kDaySeconds - 1, end);
}

/// A time of the day that begins at `day` on the wall, with or without a zone.
std::optional<long long> readTimeOf(long long day, Words& words, DayEnd end) {
    const auto clock = readClock(words);
    if (!clock) return std::nullopt;
    const long long wholeMinute = !clock->hasSeconds && end == DayEnd::kLastSecond ? 59 : 0;
    const long long wall = day + clock->seconds + wholeMinute;
    if (words.isAtEnd()) return momentOf(wall, end);
    const auto zone = readZone(words);
    if (!zone || !words.isAtEnd()) return std::nullopt;
    return wall - *zone;
}

std::string localText(long long seconds, const char* format) {
    const auto moment = static_cast<time_t>(seconds);
    struct tm local {};
    std::array<char, 64> text{};
    if (::localtime_r(&moment, &local) == nullptr) return std::to_string(seconds);
    return {text.data(), std::strftime(text.data(), text.size(), format, &local)};
}

}  // namespace

std::optional<long long> timeOfWords(std::string_view words, long long now, DayEnd end) {
    const long long wallNow = wallOf(now);
    const long long today = wallNow - ((wallNow % kDaySeconds) + kDaySeconds) % kDaySeconds;
    if (words == "today") return dayOn(today, end);
    if (words == "yesterday") return dayOn(today - kDaySeconds, end);
    if (const auto duration = readDuration(words)) return now - *duration;
    Words rest(words);
    const auto day = readDay(rest);
    if (!day) {
        Words clock(words);
        return readTimeOf(today, clock, end);
    }
    if (rest.isAtEnd()) return dayOn(*day, end);
    if (!rest.take(' ') && !rest.take('T') && !rest.take('t')) return std::nullopt;
    return readTimeOf(*day, rest, end);
}

std::string localTimeText(long long seconds) {
    return localText(seconds, "%Y-%m-%d %H:%M:%S");
}

std::string timeJson(long long seconds) {
    std::string text = localText(seconds, "%Y-%m-%dT%H:%M:%S%z");
    // "+0100" and no colon is what strftime knows.
    if (text.size() > 5 && (text[text.size() - 5] == '+' || text[text.size() - 5] == '-')) {
        text.insert(text.size() - 2, 1, ':');
    }
    return text;
}

std::string localDay(long long seconds) {
    return localText(seconds, "%Y-%m-%d");
}

}  // namespace ombrel
