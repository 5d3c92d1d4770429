// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel archive list`.
#include "linux/common/progress_bar.h"
#include "platform/veskcore.h"
#include "tools/ombrel/answer.h"
#include "tools/ombrel/archive_commands.h"
#include "tools/ombrel/archive_name.h"
#include "tools/ombrel/json_writer.h"
#include "tools/ombrel/log_files.h"
#include "tools/ombrel/progress.h"
#include "tools/ombrel/table.h"
#include "tools/ombrel/time_words.h"

namespace ombrel {

namespace {

struct ListedArchive {
    LogFile file;
    long long rows = -1;              ///< -1: not known
    std::vector<std::string> beside;  ///< the paths of what belongs to it
};

bool isZip(const ListedArchive& archive) {
    return archive.file.kind == LogFile::Kind::kZip;
}

ListedArchive lookAt(LogArchiver& archiver, LogFile file) {
    ListedArchive archive{std::move(file), -1, {}};
    if (!isZip(archive)) archive.rows = archiver.DBCountGet(archive.file.path);
    const std::string stem = archive.file.path.substr(0, archive.file.path.rfind('.'));
    for (const std::string_view suffix : kArchiveCompanions) {
        std::string path = suffix == kOldFileSuffix ? archive.file.path : stem;
        path += suffix;
        if (VLIBCFileExist(path.c_str()) != 0) archive.beside.push_back(std::move(path));
    }
    return archive;
}

/// "db", "db+txt", "zip", "db+SYS+v1": the kind and what lies beside it.
std::string formOf(const ListedArchive& archive) {
    std::string form = isZip(archive) ? "zip" : "db";
    for (const std::string& path : archive.beside) {
        const std::string tag = path.substr(path.find_last_of("._") + 1);
        form += "+" + (tag == "TXT" ? "txt" : tag);
    }
    return form;
}

void addJson(JsonWriter& json, const ListedArchive& archive) {
    const LogFile& file = archive.file;
    json.beginObject()
        .member("path", file.path)
        .member("format", isZip(archive) ? "zip" : "db")
        .member("first_day", file.firstDay)
        .member("last_day", file.lastDay)
        .member("rows", archive.rows < 0 ? std::optional<long long>() : archive.rows)
        .member("size_bytes", file.bytes)
        .member("changed", timeJson(file.changed))
        .key("companions")
        .beginArray();
    for (const std::string& path : archive.beside)
        json.text(path);
    json.endArray().endObject();
}

std::string asJson(const std::vector<ListedArchive>& archives) {
    JsonWriter json;
    json.beginObject().key("archives").beginArray();
    for (const ListedArchive& archive : archives)
        addJson(json, archive);
    return json.endArray().endObject().takeLine();
}

std::string asTable(const Context& context, const std::vector<ListedArchive>& archives) {
    Table table(
        {{"FIRST DAY"}, {"LAST DAY"}, {"ROWS", Align::kRight}, {"SIZE", Align::kRight}, {"FORM"}, {"PATH"}});
    const bool forPeople = context.out.isTerminal;
    for (const ListedArchive& archive : archives) {
        const auto rows = static_cast<unsigned long long>(archive.rows);
        const std::string rowText = forPeople ? groupedNumber(rows) : std::to_string(rows);
        const unsigned long long bytes = archive.file.bytes;
        table.add({{archive.file.firstDay},
                   {archive.file.lastDay},
                   {archive.rows < 0 ? "" : rowText},
                   {forPeople ? sizeText(bytes) : std::to_string(bytes)},
                   {formOf(archive)},
                   {archive.file.path}});
    }
    return table.text(context.out);
}

}  // namespace

int listArchives(const Context& context) {
    LogArchiver archiver;
    if (const int code = loadArchiver(archiver)) return code;
    LogFiles found = findLogFiles(archiver, LogPlaces::kArchives);
    std::vector<ListedArchive> archives;
    Progress progress(context.err, "counting rows", "archives");
    for (LogFile& file : found.files) {
        progress.show(archives.size(), found.files.size());
        archives.push_back(lookAt(archiver, std::move(file)));
    }
    progress.clear();
    int exitCode = 0;
    for (const std::string& note : found.notes)
        exitCode = complain(1, note);
    return endOfOutput(say(context.json ? asJson(archives) : asTable(context, archives)), exitCode);
}

}  // namespace ombrel
