// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/archive_check.h"

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "linux/common/path_parts.h"
#include "linux/common/progress_bar.h"
#include "linux/common/text_escape.h"
#include "ombrel/logarchiver.h"
#include "platform/vesksyslog.h"
#include "src/platform_handles.h"
#include "tools/ombrel-upgrade/zip_file.h"
#include "tools/ombrel/archive_name.h"
#include "tools/ombrel/database_check.h"

namespace ombrel {

namespace {

using State = ArchiveFinding::State;

constexpr const char* kRestore = "restore it from a backup, or save its rows with `sqlite3 FILE .recover`";
constexpr const char* kRename = "see which rows it holds and give it a name that fits";

/// What its rows themselves say.
struct RowFacts {
    long long count = -1;
    std::string firstDay;
    std::string lastDay;
    bool hasOtherDays = false;  ///< an upgrade kept days that are none as texts, beside the rows
};

std::string fieldOf(VESKDBRESULT* result, int row, const char* column) {
    const char* text = VESKDBFetchField(result, row, column);
    return text != nullptr ? text : "";
}

/// Runs a question that has one row for an answer; false without one.
bool askRow(VESKDBCONN* connection, const char* sql, Result& result, int& row) {
    const int code = lend(result, [&](VESKDBRESULT** raw) { return VESKDBExecute(connection, sql, raw); });
    return code >= 0 && result && VESKDBFetchRow(result.get(), &row) >= 0;
}

bool readFacts(const std::string& path, int version, RowFacts& facts) {
    const Connection connection(VESKDBConnect(nullptr, nullptr, nullptr, path.c_str()));
    if (!connection) return false;
    constexpr const char* kNew =
        "SELECT COUNT(*) AS n, date(MIN(utcsec + utcoff), 'unixepoch') AS first, "
        "date(MAX(utcsec + utcoff), 'unixepoch') AS last FROM logs";
    constexpr const char* kOld = "SELECT COUNT(*) AS n, MIN(ldate) AS first, MAX(ldate) AS last FROM logs";
    constexpr const char* kOtherDays = "SELECT name FROM sqlite_master WHERE name = 'original_texts'";
    Result result;
    int row = 0;
    if (!askRow(connection.get(), version == 1 ? kOld : kNew, result, row)) return false;
    facts.count = std::atoll(fieldOf(result.get(), row, "n").c_str());
    facts.firstDay = fieldOf(result.get(), row, "first");
    facts.lastDay = fieldOf(result.get(), row, "last");
    Result other;
    facts.hasOtherDays = askRow(connection.get(), kOtherDays, other, row);
    return true;
}

std::string rowsText(long long count) {
    return groupedNumber(static_cast<unsigned long long>(count)) + (count == 1 ? " row" : " rows");
}

ArchiveFinding judge(const LogFile& archive, int version, const RowFacts& facts) {
    const long long recorded = version == 1 ? facts.count : LogArchiver().DBCountGet(archive.path);
    if (recorded != facts.count) {
        return {State::kWrong,
                "it holds " + rowsText(facts.count) + ", its information record says " + std::to_string(recorded),
                "rows were lost or added by hand; compare it with a backup"};
    }
    if (facts.count == 0) return {State::kGood, "no rows", ""};
    const std::string days = facts.firstDay + " to " + facts.lastDay;
    const bool isNamed = !archive.firstDay.empty() && archive.lastDay != kUnknownDay;
    const bool fits = archive.firstDay == facts.firstDay && archive.lastDay == facts.lastDay;
    if (isNamed && !fits && !facts.hasOtherDays) {
        return {State::kWrong, "its rows are of " + days + ", which is not what its name says", kRename};
    }
    return {State::kGood, rowsText(facts.count) + ", " + days, ""};
}

ArchiveFinding checkDatabaseFile(const LogFile& archive) {
    const DatabaseCheck check = checkDatabase(archive.path);
    if (check.state == DatabaseCheck::State::kDamaged) return {State::kWrong, check.what, kRestore};
    if (!check.isGood()) return {State::kUnknown, check.what, "see who may read it"};
    const int version = SyslogDBVersionGet(archive.path);
    if (version < 0) return {State::kWrong, "it is no log database", "see where it comes from"};
    RowFacts facts;
    if (!readFacts(archive.path, version, facts)) {
        return {State::kUnknown, "its rows cannot be read", "see who may read it, and try again"};
    }
    return judge(archive, version, facts);
}

/// Reads an entry to its end, where its check sum is compared. Empty, or what is wrong.
std::string readEntry(const ZipFile& zip, const ZipEntry& entry) {
    const ZipStream stream(zip_fopen_index(zip.handle(), entry.index, 0));
    if (!stream) return "the entry " + entry.name + ": " + zip_strerror(zip.handle());
    std::vector<char> buffer(kZipBufferBytes);
    zip_int64_t got = 0;
    do {
        got = zip_fread(stream.get(), buffer.data(), buffer.size());
    } while (got > 0);
    return got == 0 ? "" : "the entry " + entry.name + ": " + zip_error_strerror(zip_file_get_error(stream.get()));
}

/// The reason alone of "cannot read PATH: WHY; ADVICE".
std::string reasonAlone(std::string wrong, const std::string& path) {
    const std::string shown = escapeForLine(path) + ": ";
    if (const auto at = wrong.find(shown); at != std::string::npos) wrong.erase(0, at + shown.size());
    const std::string advice = std::string("; ") + kTestZip;
    if (wrong.ends_with(advice)) wrong.erase(wrong.size() - advice.size());
    return wrong;
}

ArchiveFinding checkZip(const LogFile& archive, const std::function<void(long long)>& onBytes) {
    ZipFile zip;
    errno = 0;
    if (const std::string wrong = zip.open(archive.path); !wrong.empty()) {
        if (errno == EACCES) return {State::kUnknown, reasonAlone(wrong, archive.path), "see who may read it"};
        return {State::kWrong, reasonAlone(wrong, archive.path), kTestZip};
    }
    if (onBytes) zip.tellReads(onBytes);
    for (const ZipEntry& entry : zip.entries()) {
        const std::string wrong = readEntry(zip, entry);
        if (!wrong.empty()) return {State::kWrong, wrong, kTestZip};
    }
    const std::size_t count = zip.entries().size();
    if (count == 0) return {State::kWrong, "it holds nothing", "restore it from a backup"};
    return {State::kGood, groupedNumber(count) + (count == 1 ? " entry" : " entries"), ""};
}

}  // namespace

ArchiveFinding checkArchive(const LogFile& archive, const std::function<void(long long)>& onBytes) {
    return archive.kind == LogFile::Kind::kZip ? checkZip(archive, onBytes) : checkDatabaseFile(archive);
}

}  // namespace ombrel
