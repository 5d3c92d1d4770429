// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Reading and searching real databases.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <random>
#include <utility>

#include "linux/common/path_parts.h"
#include "linux/common/sqlite_db.h"
#include "tests/linux/child_process.h"
#include "tests/linux/test_database.h"
#include "tools/ombrel/search_engine.h"
#include "tools/ombrel/search_files.h"
#include "tools/ombrel/time_words.h"

namespace ombrel::test {

namespace {

using contract::Row;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr long long kNoon = 1'709'467'200;  // 2024-03-03 12:00 UTC
constexpr long long kDay = 86'400;

class Search : public ::testing::Test {
protected:
    Search() {
        ::setenv("TZ", "UTC", 1);
        ::setenv("TMPDIR", scratch.c_str(), 1);
        ::tzset();
        std::filesystem::create_directory(scratch);
    }
    ~Search() override {
        ::unsetenv("TZ");
        ::unsetenv("TMPDIR");
        ::tzset();
    }
    static LogFilter filterOf(const FilterWords& words) {
        LogFilter filter;
        EXPECT_EQ(filter.read(words, kNoon), std::nullopt);
        return filter;
    }
    std::string make(const std::string& name, const std::vector<Row>& rows) {
        contract::makeLinuxLogDatabase(folder.at(name), rows);
        return folder.at(name);
    }
    static void execute(const std::string& path, const char* sql) {
        Connection connection;
        ASSERT_EQ(connection.open(path, OpenMode::kReadWrite), 0);
        ASSERT_EQ(connection.execute(sql), 0) << connection.lastMessage();
    }
    std::string pack(const std::string& name, const std::string& database) {
        const std::string path = folder.at(name);
        int code = 0;
        zip_t* zip = zip_open(path.c_str(), ZIP_CREATE, &code);
        zip_source_t* source = zip_source_file(zip, database.c_str(), 0, -1);
        EXPECT_GE(zip_file_add(zip, "../../etc/evil.DB", source, 0), 0);
        EXPECT_EQ(zip_close(zip), 0);
        std::filesystem::remove(database);
        return path;
    }
    static std::vector<std::string> messagesOf(LogReader& reader) {
        std::vector<std::string> messages;
        const auto end = reader.read([&](LogRow& row) {
            messages.push_back(row.message);
            return true;
        });
        EXPECT_EQ(end, LogReader::End::kEnd) << reader.error();
        return messages;
    }
    struct Found {
        std::vector<LogRow> rows;
        std::vector<std::string> errors;
    };
    Found search(
        const FilterWords& words, const std::vector<std::string>& paths, unsigned threads = 2,
        const std::function<void()>& meanwhile = [] {}) {
        const LogFilter filter = filterOf(words);
        ZipScratch zips([](const std::string&) { return std::string(); });
        SearchWorld world{filter, zips, findArchived, [](const std::string&) { return false; }};
        std::vector<LogFile> files;
        for (const std::string& path : paths) {
            files.push_back(*logFileAt(path));
            if (nameOf(path).starts_with("VESK")) files.back().kind = LogFile::Kind::kWorking;
        }
        SearchEngine engine(world, std::move(files), threads);
        Found found;
        for (bool isEnd = false; !isEnd;) {
            SearchEngine::News news = engine.next(7, std::chrono::seconds(10));
            for (LogRow& row : news.rows)
                found.rows.push_back(std::move(row));
            found.errors.insert(found.errors.end(), news.errors.begin(), news.errors.end());
            isEnd = news.isEnd;
            if (!news.rows.empty()) meanwhile();
        }
        return found;
    }

    TemporaryFolder folder{"/dev/shm"};
    std::string scratch = folder.at("scratch");
    std::function<std::optional<std::string>(const LogReader::Identity&)> findArchived =
        [](const LogReader::Identity&) { return std::nullopt; };
};

std::vector<Row> numbered(long long count, long long first = kNoon) {
    std::vector<Row> rows;
    for (long long i = 1; i <= count; ++i)
        rows.push_back(
            {first + i, static_cast<int>(i % 8), "host" + std::to_string(i % 3), "user", "p", std::to_string(i)});
    return rows;
}

TEST_F(Search, ReadsEveryRowOnceInBothOrdersWhateverTheGapsBetweenIds) {
    const std::string path = make("2024-03-03_2024-03-03.DB", numbered(30'000));
    execute(path, "UPDATE logs SET id = id + 9000000000000 WHERE id > 20000; DELETE FROM logs WHERE id < 7");
    const LogFilter filter = filterOf({});
    std::vector<std::string> expected;
    for (int i = 7; i <= 30'000; ++i)
        expected.push_back(std::to_string(i));
    LogReader oldest(path, filter, ReadOrder::kOldestFirst);
    EXPECT_EQ(messagesOf(oldest), expected);
    EXPECT_THAT(messagesOf(oldest), IsEmpty()) << "it goes on behind the last one";
    LogReader newest(path, filter, ReadOrder::kNewestFirst);
    std::reverse(expected.begin(), expected.end());
    EXPECT_EQ(messagesOf(newest), expected);
    EXPECT_GE(newest.rowsPassed(), 29'994U);
    LogReader between(path, filter, ReadOrder::kOldestFirst);
    between.startBehind(10);
    between.startBefore(13);
    EXPECT_EQ(messagesOf(between), (std::vector<std::string>{"11", "12"}));
}

TEST_F(Search, GoesOnBehindTheRowThatTheSinkWantedLast) {
    const std::string path = make("VESKSYSLOGDB__ARCH.DB", numbered(5'000));
    FilterWords words;
    words.host = "host1";
    const LogFilter filter = filterOf(words);
    for (const std::size_t most : {std::size_t{1}, std::size_t{100}, std::size_t{5'000}}) {
        LogReader reader(path, filter, ReadOrder::kNewestFirst);
        reader.takeAtMost(most);
        std::vector<long long> ids;
        for (LogReader::End end = LogReader::End::kStopped; end == LogReader::End::kStopped;) {
            int left = 37;
            end = reader.read(
                [&](LogRow& row) {
                    EXPECT_EQ(row.host, "host1");
                    ids.push_back(row.id);
                    return --left > 0;
                },
                1);
        }
        EXPECT_THAT(ids, SizeIs(1'667)) << most;
        EXPECT_TRUE(std::is_sorted(ids.rbegin(), ids.rend()));
    }
}

TEST_F(Search, ReadsRowsThatComeLaterWithTheirNewNames) {
    const std::string path = make("VESKSYSLOGDB__ARCH.DB", numbered(10));
    const LogFilter filter = filterOf({});
    LogReader reader(path, filter, ReadOrder::kOldestFirst);
    EXPECT_THAT(messagesOf(reader), SizeIs(10));
    execute(
        path,
        "INSERT INTO hosts VALUES(77, 'late'); INSERT INTO logs(utcsec, rutcsec, utcoff, host, sender, facility,"
        " severity, program, msg) VALUES(1, 1, 0, 77, 1, 1, 3, 1, 'new')");
    std::string host;
    EXPECT_EQ(reader.read([&](LogRow& row) {
        host = row.host + " " + row.message;
        return true;
    }),
              LogReader::End::kEnd);
    EXPECT_EQ(host, "late new");
}

TEST_F(Search, NeverMixesTheRowsOfTwoFilesOfOneName) {
    const std::string path = make("VESKSYSLOGDB__ARCH.DB", numbered(9'000));
    const LogFilter filter = filterOf({});
    LogReader reader(path, filter, ReadOrder::kNewestFirst);
    long long last = 0;
    EXPECT_EQ(reader.read([&](LogRow& row) {
        last = row.id;
        return row.id > 5'000;
    }),
              LogReader::End::kStopped);
    const std::string archive = folder.at("2024-03-03_2024-03-03.DB");
    std::filesystem::rename(path, archive);
    make("VESKSYSLOGDB__ARCH.DB", {{kNoon, 3, "h", "user", "p", "of the new file"}});
    EXPECT_THAT(messagesOf(reader), IsEmpty());
    EXPECT_TRUE(reader.isGone());
    LogReader behind(archive, filter, ReadOrder::kNewestFirst);
    behind.startBefore(reader.nextId());
    EXPECT_EQ(messagesOf(behind).front(), std::to_string(last - 1));
}

TEST_F(Search, FollowsADatabaseThatIsArchivedAndZippedMeanwhile) {
    for (const bool isZipped : {false, true}) {
        const std::string path = make("VESKSYSLOGDB__ARCH.DB", numbered(20'000));
        const std::string archive = folder.at("2024-03-03_2024-03-03.DB");
        findArchived = [&](const LogReader::Identity& identity) -> std::optional<std::string> {
            struct stat status {};
            if (::stat(archive.c_str(), &status) != 0 || status.st_ino != identity.number) return std::nullopt;
            return archive;
        };
        bool isMoved = false;
        const Found found = search({}, {path}, 1, [&] {
            if (std::exchange(isMoved, true)) return;
            std::filesystem::rename(path, archive);
            make("VESKSYSLOGDB__ARCH.DB", {{kNoon + kDay, 3, "h", "user", "p", "of the new file"}});
        });
        EXPECT_THAT(found.errors, IsEmpty());
        ASSERT_THAT(found.rows, SizeIs(20'000));
        for (std::size_t i = 0; i < found.rows.size(); ++i)
            ASSERT_EQ(found.rows[i].id, static_cast<long long>(20'000 - i));
        if (!isZipped) continue;
        bool isPacked = false;
        const Found zipped = search({}, {archive}, 1, [&] {
            if (!std::exchange(isPacked, true)) pack("2024-03-03_2024-03-03.ZIP", archive);
        });
        EXPECT_THAT(zipped.errors, IsEmpty());
        EXPECT_THAT(zipped.rows, SizeIs(20'000));
    }
}

TEST_F(Search, TellsOfAFileThatVanishes) {
    const std::string path = make("2024-03-03_2024-03-03.DB", numbered(20'000));
    const Found found = search({}, {path}, 1, [&] { std::filesystem::remove(path); });
    ASSERT_THAT(found.errors, SizeIs(1));
    EXPECT_THAT(found.errors[0], HasSubstr(path + ": it was moved or removed while it was searched"));
    EXPECT_LT(found.rows.size(), 20'000U);
}

// Random files, working ones, archives and ZIP files, against a list of all rows.
TEST_F(Search, FindsWhatALookAtEveryRowFindsNewestFirst) {
    std::mt19937 random(20240303);
    for (int round = 0; round < 12; ++round) {
        std::vector<std::pair<long long, std::string>> all;
        std::vector<std::string> paths;
        const std::string host = "host" + std::to_string(random() % 3);
        const std::string text = std::to_string(random() % 100);
        FilterWords words;
        if (round % 2 == 0) words.host = host;
        if (round % 3 == 0) words.text = "Number " + text;
        if (round % 4 == 1) words.regex = "number [0-9]*" + text;
        for (int file = 0; file < 7; ++file) {
            std::vector<Row> rows;
            const long long firstDay = static_cast<long long>(random() % 3);
            long long time = kNoon + firstDay * kDay;
            const long long count = static_cast<long long>(random() % 3'000);
            for (long long i = 0; i < count; ++i) {
                time += static_cast<long long>(random() % 60);
                Row row{time,   3,   "host" + std::to_string(random() % 3),
                        "user", "p", "number " + std::to_string(random() % 2'000) + " of " + std::to_string(file)};
                const bool isWanted =
                    (words.host.empty() || row.host == words.host) &&
                    (words.text.empty() || row.message.find("number " + text) != std::string::npos) &&
                    (words.regex.empty() ||
                     row.message.substr(0, row.message.find(" of")).find(text) != std::string::npos);
                if (isWanted) all.emplace_back(time, row.message);
                rows.push_back(std::move(row));
            }
            const std::string days = localDay(kNoon + firstDay * kDay) + "_" + localDay(std::max(time, kNoon)) +
                                     "_" + std::to_string(file);
            const bool isWorking = file == 0;
            const std::string path = make(isWorking ? "VESKSYSLOGDB__ARCH.DB" : days + ".DB", rows);
            if (file % 3 == 1) execute(path, "CREATE INDEX logs_host_idx ON logs (host)");
            paths.push_back(file % 3 == 2 ? pack(days + ".ZIP", path) : path);
        }
        const Found found = search(words, paths, 1 + static_cast<unsigned>(round % 3));
        EXPECT_THAT(found.errors, IsEmpty());
        std::vector<std::pair<long long, std::string>> rows;
        for (const LogRow& row : found.rows)
            rows.emplace_back(row.time, row.message);
        EXPECT_TRUE(std::is_sorted(rows.begin(), rows.end(),
                                   [](const auto& a, const auto& b) { return a.first > b.first; }));
        std::sort(rows.begin(), rows.end());
        std::sort(all.begin(), all.end());
        ASSERT_EQ(rows, all) << "round " << round;
        EXPECT_TRUE(std::filesystem::is_empty(scratch)) << "what was unpacked is gone";
        for (const std::string& path : paths)
            std::filesystem::remove(path);
    }
}

TEST_F(Search, ReadsAThousandDatabasesInOneOrder) {
    std::vector<std::string> paths;
    for (int i = 0; i < 200; ++i)
        paths.push_back(make("VESKSYSLOGDB_h" + std::to_string(i) + ".DB", numbered(40, kNoon + i)));
    const Found found = search({}, paths);
    EXPECT_THAT(found.errors, IsEmpty());
    ASSERT_THAT(found.rows, SizeIs(8'000));
    EXPECT_TRUE(std::is_sorted(found.rows.begin(), found.rows.end(),
                               [](const LogRow& a, const LogRow& b) { return a.time > b.time; }));
}

TEST_F(Search, EndsAtOnceWhenItIsStopped) {
    const std::string path = make("2024-03-03_2024-03-03.DB", numbered(20'000));
    const LogFilter filter = filterOf({});
    ZipScratch zips([](const std::string&) { return std::string(); });
    SearchWorld world{filter, zips, findArchived, [](const std::string&) { return false; }};
    SearchEngine engine(world, {*logFileAt(path)}, 2);
    EXPECT_THAT(engine.next(10, std::chrono::seconds(10)).rows, SizeIs(10));
    engine.stop();
    const SearchEngine::News news = engine.next(10, std::chrono::seconds(10));
    EXPECT_TRUE(news.isEnd);
    EXPECT_THAT(news.rows, IsEmpty());
}

TEST_F(Search, SaysWhatIsWrongWithAZipFile) {
    const std::string good = pack("2024-03-03_2024-03-03_1.ZIP", make("a.DB", numbered(3)));
    const std::string damaged = folder.at("2024-03-03_2024-03-03_2.ZIP");
    std::filesystem::copy_file(good, damaged);
    std::filesystem::resize_file(damaged, std::filesystem::file_size(damaged) / 2);
    const std::string empty = folder.at("2024-03-03_2024-03-03_3.ZIP");
    int code = 0;
    zip_t* zip = zip_open(empty.c_str(), ZIP_CREATE, &code);
    EXPECT_GE(zip_file_add(zip, "notes.TXT", zip_source_buffer(zip, "x", 1, 0), 0), 0);
    EXPECT_EQ(zip_close(zip), 0);
    const std::string locked = folder.at("2024-03-03_2024-03-03_4.ZIP");
    zip = zip_open(locked.c_str(), ZIP_CREATE, &code);
    EXPECT_GE(zip_file_add(zip, "\x1b[2J.DB", zip_source_buffer(zip, "x", 1, 0), 0), 0);
    EXPECT_EQ(zip_file_set_encryption(zip, 0, ZIP_EM_AES_256, "secret"), 0);
    EXPECT_EQ(zip_close(zip), 0);
    const Found found = search({}, {good, damaged, empty, locked}, 1);
    EXPECT_THAT(found.rows, SizeIs(3));
    EXPECT_THAT(found.errors,
                ::testing::UnorderedElementsAre(
                    HasSubstr("cannot read " + damaged), empty + ": there is no database in it",
                    locked + ": cannot read the entry \\x1b[2J.DB: it is encrypted; unpack it by hand"));
    EXPECT_TRUE(std::filesystem::is_empty(scratch));
}

TEST_F(Search, TakesAwayWhatAKilledRunHasLeftAndNothingElse) {
    const std::string zip = pack("2024-03-03_2024-03-03_1.ZIP", make("a.DB", numbered(3)));
    for (const char* name : {"ombrel-search-killed", "ombrel-search-busy", "somebody"}) {
        std::filesystem::create_directory(scratch + "/" + name);
        makeDatabase(scratch + "/" + name + "/a.DB", {"left"});
    }
    const int busy = ::open((scratch + "/ombrel-search-busy").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(::flock(busy, LOCK_EX), 0);
    std::filesystem::create_directory_symlink(scratch + "/somebody", scratch + "/ombrel-search-link");
    EXPECT_THAT(search({}, {zip}).rows, SizeIs(3));
    EXPECT_FALSE(std::filesystem::exists(scratch + "/ombrel-search-killed"));
    EXPECT_TRUE(std::filesystem::exists(scratch + "/ombrel-search-busy/a.DB"));
    EXPECT_TRUE(std::filesystem::exists(scratch + "/somebody/a.DB"));
    ::close(busy);
}

}  // namespace

}  // namespace ombrel::test
