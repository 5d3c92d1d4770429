// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/archive_name.h"

#include <charconv>
#include <chrono>

namespace ombrel {

namespace {

constexpr int kHighestNumber = 1000;  // that the archiver gives

std::optional<int> readNumber(std::string_view digits) {
    int number = 0;
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number);
    const bool isWhole = error == std::errc{} && stop == end && digits.front() != '-';
    return isWhole ? std::optional(number) : std::nullopt;
}

/// What a name ends in, behind its stem: the longer endings before those that they end in.
constexpr std::array<std::string_view, 9> kEndings = {".DB.v1", ".ZIP.v1", ".DB-journal", ".DB",  ".ZIP",
                                                      ".TXT",   "_SYS",    "_CON",        "_XFER"};

bool isMainEnding(std::string_view ending) {
    return ending == ".DB" || ending == ".ZIP" || ending == ".TXT";
}

/// "" is 0, "_12" is 12.
std::optional<int> readNumbering(std::string_view text) {
    if (text.empty()) return 0;
    if (text.size() < 2 || text[0] != '_' || text[1] == '0') return std::nullopt;
    const auto number = readNumber(text.substr(1));
    return number && *number <= kHighestNumber ? number : std::nullopt;
}

std::optional<ArchiveName> readStem(std::string_view stem) {
    if (stem.size() < 2 * kDayLength + 1 || stem[kDayLength] != '_') return std::nullopt;
    const std::string_view first = stem.substr(0, kDayLength);
    const std::string_view last = stem.substr(kDayLength + 1, kDayLength);
    const auto number = readNumbering(stem.substr(2 * kDayLength + 1));
    const auto firstDay = dayNumber(first);
    const auto lastDay = dayNumber(last);
    if (!number || !firstDay || !lastDay || *firstDay > *lastDay) return std::nullopt;
    return ArchiveName{std::string(stem), std::string(first), std::string(last), *number, false};
}

}  // namespace

std::optional<long long> dayNumber(std::string_view day) {
    if (day.size() != kDayLength || day[4] != '-' || day[7] != '-') return std::nullopt;
    const auto year = readNumber(day.substr(0, 4));
    const auto month = readNumber(day.substr(5, 2));
    const auto date = readNumber(day.substr(8, 2));
    if (!year || !month || !date) return std::nullopt;
    const std::chrono::year_month_day civil{std::chrono::year(*year), std::chrono::month(unsigned(*month)),
                                            std::chrono::day(unsigned(*date))};
    if (!civil.ok()) return std::nullopt;
    return std::chrono::sys_days(civil).time_since_epoch().count();
}

std::optional<ArchiveName> readArchiveName(std::string_view fileName) {
    for (const std::string_view ending : kEndings) {
        if (!fileName.ends_with(ending)) continue;
        auto name = readStem(fileName.substr(0, fileName.size() - ending.size()));
        if (name) name->isMain = isMainEnding(ending);
        return name;
    }
    return std::nullopt;
}

}  // namespace ombrel
