// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tests/support/old_database_values.h"

#include "linux/common/zone_clock.h"

namespace ombrel::test {

namespace {

using namespace std::string_view_literals;

constexpr std::int64_t kHourSeconds = 3600;

std::int64_t wallOf(int year, int month, int day, int hour) noexcept {
    return daysFromCivil(year, month, day) * kDaySeconds + hour * kHourSeconds;
}

void setDigits(char* two, std::int64_t value) {
    two[0] = static_cast<char>('0' + value / 10);
    two[1] = static_cast<char>('0' + value % 10);
}

/// Bytes of every value, NUL among them.
void makeNoise(std::string& bytes, Chance& chance) {
    bytes.resize(1 + chance.below(40));
    for (char& byte : bytes)
        byte = static_cast<char>(chance.next() >> 56U);
}

}  // namespace

std::uint64_t Chance::next() noexcept {
    state_ += 0x9E3779B97F4A7C15ULL;
    std::uint64_t mixed = state_;
    mixed = (mixed ^ (mixed >> 30U)) * 0xBF58476D1CE4E5B9ULL;
    mixed = (mixed ^ (mixed >> 27U)) * 0x94D049BB133111EBULL;
    return mixed ^ (mixed >> 31U);
}

void makeOdd(OldValue& value, Chance& chance) {
    static constexpr std::string_view kTexts[] = {""sv,
                                                  " "sv,
                                                  "  leading and trailing  "sv,
                                                  "\xFF\xFE\x80 no UTF-8"sv,
                                                  "cut off \xE2\x82"sv,
                                                  "overlong \xC0\xAF and surrogate \xED\xA0\x80"sv,
                                                  "\xEF\xBB\xBFwith a mark"sv,
                                                  "gr\xC3\xBC\xC3\x9F Gott, \xE2\x82\xAC 5, \xF0\x9F\x94\x92"sv,
                                                  "\x1B]0;title\x07\x1B[2J\x1B[31mred\x1B[0m"sv,
                                                  "\x9B"
                                                  "31mred"sv,
                                                  "a\tb\tc"sv,
                                                  "one\r\ntwo\nthree\r"sv,
                                                  "\0"sv,
                                                  "before\0behind"sv,
                                                  "ends in\0"sv,
                                                  "'; DROP TABLE logs; --"sv,
                                                  "%s%n%d"sv,
                                                  "NULL"sv,
                                                  "../../etc/passwd"sv,
                                                  "007"sv,
                                                  "1e3"sv,
                                                  "0x10"sv,
                                                  "#000"sv};
    switch (chance.below(12)) {
        case 0:
        case 1:
            value.setText({});
            break;
        case 2:
            value.kind = OldValue::Kind::kNull;
            break;
        case 3:
            value.kind = OldValue::Kind::kInteger;
            value.number = static_cast<long long>(chance.next()) >> chance.below(64);
            break;
        case 4:
            value.kind = OldValue::Kind::kReal;
            value.real = static_cast<double>(chance.below(1'000'000)) / 64.0;
            break;
        case 5:
            value.kind = OldValue::Kind::kBlob;
            makeNoise(value.bytes, chance);
            break;
        case 6:
            value.kind = OldValue::Kind::kText;
            makeNoise(value.bytes, chance);
            break;
        default:
            value.setText(chance.oneOf(kTexts));
    }
}

void makeSeverity(OldValue& value, Chance& chance) {
    static constexpr std::string_view kUsual[] = {"emerg",   "alert",  "crit", "err",
                                                  "warning", "notice", "info", "debug"};
    static constexpr std::string_view kSpelt[] = {"error", "ERR",  "Error", "WARNING", "warn", "panic",
                                                  "PANIC", "Info", "EMERG", "Notice",  "DEBUG"};
    static constexpr std::string_view kNone[] = {"",     "8",    "-1", "07",     "3 ", " err", "none",
                                                 "erro", "errx", "\t", "local0", "99", "4.0",  "no severity"};
    const std::uint64_t kind = chance.below(100);
    if (kind < 65) {
        value.setText(chance.oneOf(kUsual));
    } else if (kind < 75) {
        const char digit = static_cast<char>('0' + chance.below(8));
        value.setText({&digit, 1});
    } else if (kind < 83) {
        value.kind = OldValue::Kind::kInteger;
        value.number = static_cast<long long>(chance.below(8));
    } else if (kind < 94) {
        value.setText(chance.oneOf(kSpelt));
    } else if (kind < 98) {
        value.setText(chance.oneOf(kNone));
    } else {
        makeOdd(value, chance);
    }
}

void makeDay(OldValue& value, std::int64_t wall, DayText& day) {
    value.setText(day.of(wall));
}

void makeTime(OldValue& value, std::int64_t wall) {
    const std::int64_t ofDay = wall - floorDiv(wall, kDaySeconds) * kDaySeconds;
    char time[] = "00:00:00";
    setDigits(time, ofDay / kHourSeconds);
    setDigits(time + 3, ofDay / 60 % 60);
    setDigits(time + 6, ofDay % 60);
    value.setText({time, sizeof time - 1});
}

void makeOddDay(OldValue& value, Chance& chance) {
    static constexpr std::string_view kDays[] = {
        "",           "0000-00-00", "2024-3-5",    "2023-02-29",  "2024-02-30",  "2024-13-01",  "2024-00-10",
        "2024-01-00", "2024-04-31", "2100-02-29",  "24-01-01",    "2024/01/01",  "20240101",    "01.02.2024",
        "Jan  5",     "now",        "-2024-01-01", "2024-01-01 ", " 2024-01-01", "2024-01-01T", "12024-01-01",
        "2024-01-0a", "2460000.5",  "1900-02-29",  "0001-01-01"};
    if (chance.oneIn(6)) return makeOdd(value, chance);
    value.setText(chance.oneOf(kDays));
}

void makeOddTime(OldValue& value, Chance& chance) {
    static constexpr std::string_view kTimes[] = {
        "",         "23:59:60",    "24:00:00",     "23:60:00",  "7:05:09",   "07:05",
        "07:05:9",  "070509",      "07:05:09.123", "07:05:09Z", "12:00:00 ", " 12:00:00",
        "-1:00:00", "12:00:00+01", "99:99:99",     "12.00.00",  "noon",      "12:00:0a"};
    if (chance.oneIn(6)) return makeOdd(value, chance);
    value.setText(chance.oneOf(kTimes));
}

std::int64_t wrongClock(Chance& chance) noexcept {
    static const std::int64_t kMoments[] = {
        wallOf(1970, 1, 1, 0),    wallOf(1969, 12, 31, 20), wallOf(2036, 2, 7, 6), wallOf(2038, 1, 19, 3),
        wallOf(2000, 2, 29, 12),  wallOf(1999, 12, 31, 23), wallOf(2106, 2, 7, 6), wallOf(1900, 1, 1, 0),
        wallOf(9999, 12, 31, 23), wallOf(1883, 11, 18, 12)};
    return chance.oneOf(kMoments) + static_cast<std::int64_t>(chance.below(3600));
}

std::int64_t clockChange(Chance& chance) noexcept {
    static const std::int64_t kMoments[] = {
        wallOf(2023, 3, 26, 2), wallOf(2023, 10, 29, 2), wallOf(2024, 3, 31, 2), wallOf(2024, 10, 27, 2),
        wallOf(2023, 3, 12, 2), wallOf(2023, 11, 5, 1),  wallOf(2024, 3, 10, 2), wallOf(2024, 11, 3, 1)};
    // The hour itself, and some minutes on both sides of it.
    return chance.oneOf(kMoments) - 600 + static_cast<std::int64_t>(chance.below(4800));
}

}  // namespace ombrel::test
