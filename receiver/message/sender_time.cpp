// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/message/sender_time.h"

namespace ombrel {

namespace {

// 1..12, or 0 when the text does not begin with the name of a month.
int takeMonth(TextCursor& text) noexcept {
    static constexpr std::string_view kNames = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const std::string_view rest = text.rest();
    if (rest.size() < 3) return 0;
    for (size_t i = 0; i < 12; ++i) {
        if (rest.substr(0, 3) == kNames.substr(i * 3, 3)) {
            text.skip(3);
            return static_cast<int>(i) + 1;
        }
    }
    return 0;
}

// A leap second is legal; whoever counts seconds takes it for the first one of the next minute.
bool takeClock(TextCursor& text, SenderTime& time, size_t leastHourDigits) noexcept {
    const auto hour = text.takeNumber(leastHourDigits, 2);
    if (!hour || *hour > 23 || !text.take(':')) return false;
    const auto minute = text.takeNumber(2, 2);
    if (!minute || *minute > 59 || !text.take(':')) return false;
    const auto second = text.takeNumber(2, 2);
    if (!second || *second > 60) return false;
    time.hour = *hour;
    time.minute = *minute;
    time.second = *second;
    return true;
}

bool takeFraction(TextCursor& text) noexcept {
    if (!text.take('.') && !text.take(',')) return true;
    return text.takeNumber(1, 9).has_value();
}

bool takeOffset(TextCursor& text, SenderTime& time) noexcept {
    if (text.take('Z')) {
        time.utcOffsetSeconds = 0;
        return true;
    }
    int sign = 0;
    if (text.take('+')) sign = 1;
    if (sign == 0 && text.take('-')) sign = -1;
    if (sign == 0) return true;
    const auto hours = text.takeNumber(2, 2);
    (void)text.take(':');  // also written +0100
    const auto minutes = text.takeNumber(2, 2);
    if (!hours || *hours > 23 || !minutes || *minutes > 59) return false;
    time.utcOffsetSeconds = sign * (*hours * 3600 + *minutes * 60);
    return true;
}

int daysInMonth(int month, bool leapYear) noexcept {
    if (month == 2) return leapYear ? 29 : 28;
    return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
}

bool isDay(const SenderTime& time) noexcept {
    const bool leapYear = !time.year || (*time.year % 4 == 0 && (*time.year % 100 != 0 || *time.year % 400 == 0));
    return time.month >= 1 && time.month <= 12 && time.day >= 1 && time.day <= daysInMonth(time.month, leapYear);
}

}  // namespace

std::optional<SenderTime> takeBsdTime(TextCursor& text) noexcept {
    TextCursor ahead = text;
    SenderTime time;
    time.month = takeMonth(ahead);
    if (time.month == 0 || !ahead.take(' ')) return std::nullopt;
    (void)ahead.take(' ');  // a day of one digit is padded
    const auto day = ahead.takeNumber(1, 2);
    if (!day || !ahead.take(' ')) return std::nullopt;
    time.day = *day;
    TextCursor year = ahead;
    if (const auto value = year.takeNumber(4, 4); value && year.take(' ')) {
        time.year = value;
        ahead = year;
    }
    if (!takeClock(ahead, time, 1) || !takeFraction(ahead) || !isDay(time)) return std::nullopt;
    text = ahead;
    return time;
}

std::optional<SenderTime> takeIsoTime(TextCursor& text) noexcept {
    TextCursor ahead = text;
    SenderTime time;
    time.year = ahead.takeNumber(4, 4);
    if (!time.year || !ahead.take('-')) return std::nullopt;
    const auto month = ahead.takeNumber(2, 2);
    if (!month || !ahead.take('-')) return std::nullopt;
    const auto day = ahead.takeNumber(2, 2);
    if (!day || (!ahead.take('T') && !ahead.take(' '))) return std::nullopt;
    time.month = *month;
    time.day = *day;
    if (!takeClock(ahead, time, 2) || !takeFraction(ahead) || !takeOffset(ahead, time) || !isDay(time)) {
        return std::nullopt;
    }
    text = ahead;
    return time;
}

}  // namespace ombrel
