// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The names of archives and of what belongs to them. Pure.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace ombrel {

/// Behind the name of an archive without its last three or four characters (".DB", ".ZIP"); an old file that an
/// upgrade left has its ending behind the whole name.
constexpr std::string_view kOldFileSuffix = ".v1";
constexpr std::array<std::string_view, 5> kArchiveCompanions = {".TXT", "_SYS", "_CON", "_XFER", kOldFileSuffix};

/// The last day of an archive whose days nobody knew.
constexpr std::string_view kUnknownDay = "1970-01-01";
constexpr std::size_t kDayLength = kUnknownDay.size();

/// A file of an archive, told from its name alone.
struct ArchiveName {
    std::string stem;  ///< "2024-03-03_2024-03-09_1": all files of an archive have the same
    std::string firstDay;
    std::string lastDay;
    int number = 0;       ///< of several with the same days; 0 of the first
    bool isMain = false;  ///< the archive itself (.DB, .ZIP or .TXT), and not what goes with it
};

/// Nothing of any other name: the days have to be days of the calendar, in their order.
std::optional<ArchiveName> readArchiveName(std::string_view fileName);

/// Days since 1970-01-01 of YYYY-MM-DD; nothing of what is no day of the calendar.
std::optional<long long> dayNumber(std::string_view day);

}  // namespace ombrel
