// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Reads every log database of an archive folder and holds it against what was sent: each file must pass
// SQLite's integrity check, its information record must equal its rows, and each number of each stream must
// stand in one row exactly. Prints a table; exit code 1 when anything is missing, doubled or damaged.
//   archive-audit FOLDER [STREAM=SENT ...]
#include <sqlite3.h>
#include <sysexits.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/archive_files.h"

namespace {

namespace fs = std::filesystem;

struct Stream {
    long sent = 0;
    std::vector<unsigned> seen;  ///< how often each number was stored
    long unexpected = 0;         ///< rows with a number that was never sent
};
using Streams = std::map<std::string, Stream, std::less<>>;

struct Close {
    void operator()(sqlite3* db) const { sqlite3_close(db); }
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Database = std::unique_ptr<sqlite3, Close>;
using Statement = std::unique_ptr<sqlite3_stmt, Close>;

Database open(const fs::path& path) {
    sqlite3* raw = nullptr;
    const int result = sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READWRITE, nullptr);
    Database db(raw);
    if (result != SQLITE_OK) throw std::runtime_error("cannot open " + path.string());
    sqlite3_busy_timeout(raw, 10000);
    return db;
}

Statement prepare(sqlite3* db, const char* sql) {
    sqlite3_stmt* raw = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &raw, nullptr) != SQLITE_OK) throw std::runtime_error(sqlite3_errmsg(db));
    return Statement(raw);
}

std::string_view column(sqlite3_stmt* statement, int index) {
    const auto* text = static_cast<const char*>(sqlite3_column_blob(statement, index));
    return text == nullptr
               ? std::string_view()
               : std::string_view(text, static_cast<std::size_t>(sqlite3_column_bytes(statement, index)));
}

/// "NAME:NUMBER" of a row: behind "seq=" in the text or in the process id.
std::string_view mark(std::string_view processId, std::string_view message) {
    const auto at = message.find("seq=");
    return at == std::string_view::npos ? processId : message.substr(at + 4);
}

void note(Streams& streams, std::string_view text) {
    const auto colon = text.find(':');
    if (colon == std::string_view::npos) return;
    const auto stream = streams.find(text.substr(0, colon));
    if (stream == streams.end()) return;
    const auto number = std::strtoul(std::string(text.substr(colon + 1, 20)).c_str(), nullptr, 10);
    if (number >= stream->second.seen.size()) {
        ++stream->second.unexpected;
    } else {
        ++stream->second.seen[number];
    }
}

long readRows(sqlite3* db, Streams& streams) {
    const Statement rows = prepare(db, "SELECT pid, msg FROM logs");
    long count = 0;
    int step = 0;
    while ((step = sqlite3_step(rows.get())) == SQLITE_ROW) {
        ++count;
        note(streams, mark(column(rows.get(), 0), column(rows.get(), 1)));
    }
    if (step != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(db));
    return count;
}

std::string single(sqlite3* db, const char* sql) {
    const Statement statement = prepare(db, sql);
    if (sqlite3_step(statement.get()) != SQLITE_ROW) throw std::runtime_error(std::string("no answer to ") + sql);
    return std::string(column(statement.get(), 0));
}

/// The rows of one file; complains and returns false when the file is not sound.
bool audit(const ombrel::DatabaseFile& file, Streams& streams, long& rows) {
    try {
        const Database db = open(file.path);
        const std::string integrity = single(db.get(), "PRAGMA integrity_check");
        const long count = readRows(db.get(), streams);
        const std::string recorded = single(db.get(), "SELECT CAST(row_count AS TEXT) FROM loginfo");
        rows += count;
        if (integrity == "ok" && recorded == std::to_string(count)) return true;
        (void)printf("%s: integrity check %s, %ld rows, %s recorded\n", file.shownAs.c_str(), integrity.c_str(),
                     count, recorded.c_str());
    } catch (const std::exception& error) {
        (void)printf("%s: %s\n", file.shownAs.c_str(), error.what());
    }
    return false;
}

/// Prints the table; false when a stream has lost or doubled anything.
bool report(const Streams& streams) {
    bool whole = true;
    (void)printf("%-12s %10s %10s %8s %8s\n", "stream", "sent", "stored", "lost", "doubled");
    for (const auto& [name, stream] : streams) {
        long stored = stream.unexpected;
        long lost = 0;
        long doubled = stream.unexpected;
        for (const unsigned times : stream.seen) {
            stored += times;
            if (times == 0) ++lost;
            if (times > 1) doubled += times - 1;
        }
        (void)printf("%-12s %10ld %10ld %8ld %8ld\n", name.c_str(), stream.sent, stored, lost, doubled);
        whole = whole && lost == 0 && doubled == 0;
    }
    return whole;
}

bool parseStreams(int argc, char** argv, Streams& streams) {
    for (int i = 2; i < argc; ++i) {
        const char* equals = std::strchr(argv[i], '=');
        if (equals == nullptr) return false;
        Stream stream;
        // A sender that failed has said no number, which must not pass for none sent.
        char* end = nullptr;
        stream.sent = std::strtol(equals + 1, &end, 10);
        if (stream.sent < 0 || end == equals + 1 || *end != '\0') return false;
        stream.seen.resize(static_cast<std::size_t>(stream.sent));
        streams.emplace(std::string(argv[i], static_cast<std::size_t>(equals - argv[i])), std::move(stream));
    }
    return true;
}

struct ScratchFolder {
    std::string path = (fs::temp_directory_path() / "archive-audit-XXXXXX").string();
    ScratchFolder() {
        if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("cannot make " + path);
    }
    ~ScratchFolder() {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
};

}  // namespace

int main(int argc, char** argv) try {
    Streams streams;
    if (argc < 2 || !parseStreams(argc, argv, streams)) {
        (void)fputs("usage: archive-audit FOLDER [STREAM=SENT ...]\n", stderr);
        return EX_USAGE;
    }
    const ScratchFolder scratch;
    bool sound = true;
    long rows = 0;
    const auto files = ombrel::findDatabases(argv[1], scratch.path);
    for (const auto& file : files)
        sound = audit(file, streams, rows) && sound;
    const bool whole = report(streams);
    (void)printf("%zu databases, %ld rows, %s\n", files.size(), rows,
                 sound ? "all pass the integrity check and equal their information record" : "NOT all sound");
    return sound && whole ? 0 : 1;
} catch (const std::exception& error) {
    (void)fprintf(stderr, "archive-audit: %s\n", error.what());
    return EX_SOFTWARE;
}
