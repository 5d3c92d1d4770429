// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the archive rules cost: probes of databases of a thousand to five million rows beside COUNT(*), and
// one check over up to ten thousand databases. The folder is OMBREL_BENCH_FOLDER, or one of /var/tmp.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "bench/bench_database.h"
#include "linux/common/sqlite_db.h"
#include "ombrel/logarchiver.h"

namespace {

namespace fs = std::filesystem;

std::string benchFolder() {
    const char* given = std::getenv("OMBREL_BENCH_FOLDER");
    const std::string folder = given != nullptr ? given : "/var/tmp/ombrel-bench";
    fs::create_directories(folder);
    return folder;
}

std::string databaseOf(long rows) {
    const std::string path = benchFolder() + "/rows-" + std::to_string(rows) + ".DB";
    ombrel::bench::keepDatabase(path, rows);
    return path;
}

void dbCountGet(benchmark::State& state) {
    const std::string path = databaseOf(state.range(0));
    LogArchiver archiver;
    for (auto _ : state)
        benchmark::DoNotOptimize(archiver.DBCountGet(path));
}

void dbStartTimeGet(benchmark::State& state) {
    const std::string path = databaseOf(state.range(0));
    LogArchiver archiver;
    for (auto _ : state)
        benchmark::DoNotOptimize(archiver.DBStartTimeGet(path));
}

void countStar(benchmark::State& state) {
    const std::string path = databaseOf(state.range(0));
    for (auto _ : state) {
        ombrel::Connection db;
        ombrel::Statement statement;
        if (db.open(path, ombrel::OpenMode::kReadOnly) != 0 ||
            statement.prepare(db, "SELECT COUNT(*) FROM logs") != 0 ||
            statement.step() != ombrel::Statement::kRow) {
            state.SkipWithError("COUNT(*) failed");
            return;
        }
        benchmark::DoNotOptimize(statement.columnInt(0));
    }
}

/// A folder of `hosts` per-host databases, copies of one of ten rows.
std::string hostFolder(long hosts) {
    const std::string folder = benchFolder() + "/hosts-" + std::to_string(hosts);
    if (fs::exists(folder)) return folder;
    const std::string one = databaseOf(10);
    for (long i = 0; i < hosts; ++i) {
        const std::string host = "host-" + std::to_string(i);
        fs::create_directories(folder + ".part/" + host);
        fs::copy_file(one, folder + ".part/" + host + "/VESKSYSLOGDB_" + host + ".DB");
    }
    fs::rename(folder + ".part", folder);
    return folder;
}

void archiveCheck(benchmark::State& state) {
    LogArchiver archiver;
    archiver.strArchDest = hostFolder(state.range(0));
    archiver.ByDevice = 1;
    archiver.ArchCount = 1000000;
    archiver.ArchSize = 1000;
    for (auto _ : state)
        benchmark::DoNotOptimize(archiver.ArchiveCheck());
    state.counters["per_database"] =
        benchmark::Counter(static_cast<double>(state.range(0)),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

}  // namespace

BENCHMARK(dbCountGet)->Arg(1000)->Arg(100000)->Arg(1000000)->Arg(5000000);
BENCHMARK(dbStartTimeGet)->Arg(1000)->Arg(100000)->Arg(1000000)->Arg(5000000);
BENCHMARK(countStar)->Arg(1000000)->Unit(benchmark::kMicrosecond);
BENCHMARK(archiveCheck)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);
