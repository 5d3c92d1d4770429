// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A writer and a mover of one database, both killed at random moments. The writer keeps a ledger outside the
// database: what it began to commit and what it knows to be committed. Afterwards every committed batch
// stands in the archives and the working database once and whole, and every begun one once and whole or
// not at all.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>

#include "linux/common/fd.h"
#include "linux/common/log_layout.h"
#include "linux/common/turnstile.h"
#include "platform/veskfileop.h"
#include "tests/linux/child_process.h"
#include "tests/linux/test_database.h"

namespace ombrel {
namespace {

using namespace std::chrono_literals;

constexpr int kBatchRows = 40;
constexpr const char* kSchema = "CREATE TABLE rows_written(batch INTEGER, number INTEGER, filling TEXT)";

/// Lines of one word: T or C and the batch, each written by one write. They are of 16 bytes, since a killed
/// process may leave a write half done where it crosses from one page of the file to the next.
class Ledger {
public:
    explicit Ledger(const std::string& path)
        : file_(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600)) {}
    void note(char what, long long batch) const {
        char line[17];
        const int size = std::snprintf(line, sizeof line, "%c%014lld\n", what, batch);
        if (size != 16 || ::write(file_.get(), line, 16) != 16) ::_exit(9);
    }

private:
    Fd file_;
};

bool openForWriting(Connection& connection, const std::string& path) {
    return connection.open(path, OpenMode::kCreate) == 0 && prepareForWriting(connection) == 0 &&
           connection.execute("PRAGMA synchronous=OFF; PRAGMA cache_size=5") == 0 &&
           createLogDatabase(connection, kSchema) == 0;
}

int insertBatch(const Connection& connection, long long batch) {
    Statement insert;
    if (const int code = insert.prepare(connection, "INSERT INTO rows_written VALUES(?, ?, ?)")) return code;
    const std::string filling(300, 'f');
    for (int number = 0; number < kBatchRows; ++number) {
        int code = insert.bind(1, batch);
        code |= insert.bind(2, number);
        code |= insert.bindText(3, filling);
        if (code == 0) code = insert.run();
        if (code != 0) return code;
    }
    return 0;
}

/// One batch, again and again until it is in; a file that cannot be used is opened anew.
void writeBatch(Connection& connection, Turnstile& turnstile, const std::string& path, const Ledger& ledger,
                long long batch) {
    for (;;) {
        if (!connection.isOpen() && !openForWriting(connection, path)) {
            connection.close();
            continue;
        }
        (void)turnstile.pass(10s);
        if (connection.execute("BEGIN IMMEDIATE") == 0 && !connection.hasMoved() &&
            insertBatch(connection, batch) == 0) {
            ledger.note('T', batch);
            if (connection.execute("COMMIT") == 0) {
                ledger.note('C', batch);
                return;
            }
            ::_exit(8);  // a commit that fails without a full disk would make the ledger ambiguous
        }
        connection.close();
    }
}

int writeForever(const std::string& path, const std::string& ledgerPath) {
    const Ledger ledger(ledgerPath);
    Turnstile turnstile;
    if (!turnstile.open(path)) return 1;
    Connection connection;
    const long long first = static_cast<long long>(::getpid()) * 1'000'000;
    for (long long batch = first;; ++batch)
        writeBatch(connection, turnstile, path, ledger, batch);
}

int moveForever(const std::string& path, const std::string& archives) {
    for (int number = 0;; ++number) {
        const std::string to = archives + "/" + std::to_string(::getpid()) + "_" + std::to_string(number) + ".DB";
        if (VESKFileCopy(path.c_str(), to.c_str(), nullptr) == 0) std::this_thread::sleep_for(3ms);
    }
}

class MoveUnderFire : public ::testing::Test {
protected:
    void fight(std::chrono::milliseconds duration) {
        std::mt19937 random(20240303);
        std::uniform_int_distribution<int> pause(5, 60);
        pid_t writer = startWriter();
        pid_t mover = startMover();
        const auto end = std::chrono::steady_clock::now() + duration;
        while (std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(pause(random)));
            if (random() % 2 == 0) {
                endChild(writer);
                writer = startWriter();
            } else {
                endChild(mover);
                mover = startMover();
            }
            ++kills;
        }
        endChild(writer);
        endChild(mover);
    }

    pid_t startWriter() {
        return test::startChild([this] { return writeForever(path, ledgerPath); });
    }
    pid_t startMover() {
        return test::startChild([this] { return moveForever(path, archives); });
    }
    static void endChild(pid_t child) {
        (void)::kill(child, SIGKILL);
        EXPECT_EQ(test::awaitChild(child), 128 + SIGKILL) << "the child ended by itself";
    }

    /// Rows of each batch over all files; files that are not sound are failures.
    std::map<long long, int> rowsFound() {
        std::map<long long, int> found;
        std::vector<std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(archives)) {
            if (entry.path().extension() == ".DB") files.push_back(entry.path());
        }
        archiveCount = files.size();
        if (std::filesystem::exists(path)) files.push_back(path);
        for (const std::string& file : files) {
            EXPECT_EQ(test::integrityOf(file), "ok") << file;
            Connection connection;
            Statement statement;
            EXPECT_EQ(connection.open(file, OpenMode::kReadWrite), 0);
            // A writer killed before the first commit leaves a file without a table.
            if (statement.prepare(connection,
                                  "SELECT batch, COUNT(*), COUNT(DISTINCT number) FROM rows_written"
                                  " GROUP BY batch") != 0) {
                continue;
            }
            while (statement.step() == Statement::kRow) {
                EXPECT_EQ(statement.columnInt(1), statement.columnInt(2)) << "a row twice in " << file;
                found[statement.columnInt(0)] += static_cast<int>(statement.columnInt(1));
            }
        }
        return found;
    }

    test::TemporaryFolder folder;
    std::string path = folder.at("VESKSYSLOGDB__ARCH.DB");
    std::string ledgerPath = folder.at("ledger");
    std::string archives = folder.path();
    int kills = 0;
    size_t archiveCount = 0;
};

TEST_F(MoveUnderFire, NeitherLosesNorDoublesNorSplitsABatch) {
    archives = folder.at("archives");
    std::filesystem::create_directory(archives);
    fight(3s);
    const std::map<long long, int> found = rowsFound();

    std::set<long long> begun;
    size_t committed = 0;
    std::ifstream ledger(ledgerPath);
    for (std::string line; std::getline(ledger, line);) {
        const long long batch = std::stoll(line.substr(1));
        if (line[0] == 'T') {
            begun.insert(batch);
        } else {
            ++committed;
            EXPECT_EQ(found.count(batch), 1U) << "lost batch " << batch;
        }
    }
    for (const auto& [batch, rows] : found) {
        EXPECT_EQ(rows, kBatchRows) << "batch " << batch;
        EXPECT_EQ(begun.count(batch), 1U) << "batch " << batch << " out of nowhere";
    }
    EXPECT_GT(kills, 20);
    EXPECT_GT(archiveCount, 20U);
    EXPECT_GT(committed, 100U);
    RecordProperty("kills", kills);
    RecordProperty("archives", static_cast<int>(archiveCount));
    RecordProperty("batches", static_cast<int>(committed));
}

}  // namespace
}  // namespace ombrel
