// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/adoption.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>

#include "linux/common/sqlite_db.h"
#include "tests/contract/linux_makers.h"
#include "tests/linux/child_process.h"

namespace fs = std::filesystem;

namespace ombrel {
namespace {

using contract::makeLinuxVersion1Database;
using contract::Row;
using test::readBytes;
using test::TemporaryFolder;
using test::writeBytes;
using ::testing::HasSubstr;

class AdoptionTest : public ::testing::Test {
protected:
    /// Rows of these days, as somebody may have sent them.
    void make(const std::vector<std::string>& days) {
        makeLinuxVersion1Database(path_, {});
        Connection connection;
        ASSERT_EQ(connection.open(path_, OpenMode::kReadWrite), 0);
        for (const std::string& day : days) {
            Statement insert;
            ASSERT_EQ(insert.prepare(connection, "INSERT INTO logs(ldate, msg) VALUES(?, 'x')"), 0);
            ASSERT_EQ(insert.bindText(1, day), 0);
            ASSERT_EQ(insert.run(), 0);
        }
    }
    [[nodiscard]] std::string nameFor(const std::string& path) const { return fs::relative(path, folder_.path()); }

    TemporaryFolder folder_;
    std::string path_ = folder_.at("VESKSYSLOGDB__ARCH.DB.old-1");
};

TEST_F(AdoptionTest, NamesItByItsDays) {
    make({"2024-03-09", "2024-03-03", "2024-03-05"});
    const std::string bytes = readBytes(path_);
    const Adoption adoption = adoptSetAside(path_);
    EXPECT_EQ(adoption.error, "");
    EXPECT_EQ(nameFor(adoption.path), "2024-03-03_2024-03-09.DB");
    EXPECT_EQ(readBytes(adoption.path), bytes);
    EXPECT_FALSE(fs::exists(path_));
}

TEST_F(AdoptionTest, NumbersItWhenTheNameIsTaken) {
    make({"2024-03-03"});
    writeBytes(folder_.at("2024-03-03_2024-03-03.DB"), "another archive");
    fs::create_symlink("nowhere", folder_.at("2024-03-03_2024-03-03_1.DB"));
    EXPECT_EQ(nameFor(archivePathFor(path_)), "2024-03-03_2024-03-03_2.DB");
    EXPECT_EQ(nameFor(adoptSetAside(path_).path), "2024-03-03_2024-03-03_2.DB");
    EXPECT_EQ(readBytes(folder_.at("2024-03-03_2024-03-03.DB")), "another archive");
}

TEST_F(AdoptionTest, TakesNothingButDaysFromTheRows) {
    for (const std::vector<std::string>& days : std::vector<std::vector<std::string>>{
             {},
             {""},
             {"../../etc/2024-03-03"},
             {"2024-03-03/.."},
             {"0000-00-00"},
             {"2023-02-29"},
             {"2024-3-5"},
             {"2024-03-03\n"},
             {"2024-03-03 "},
             {"\x1b[31m"},
             {std::string(5000, '1')},
         }) {
        make(days);
        EXPECT_EQ(nameFor(archivePathFor(path_)), "1970-01-01_1970-01-01.DB") << ::testing::PrintToString(days);
    }
    writeBytes(folder_.at("1970-01-01_1970-01-01.DB"), "another one");
    EXPECT_EQ(nameFor(adoptSetAside(path_).path), "1970-01-01_1970-01-01_1.DB");
}

TEST_F(AdoptionTest, NamesItByTheRowsThatHaveADay) {
    make({"", "2024-03-09", "0000-00-00", "2024-03-03", "2024-3-5", "9999-99-99", "../../etc"});
    EXPECT_EQ(nameFor(archivePathFor(path_)), "2024-03-03_2024-03-09.DB");
}

TEST_F(AdoptionTest, StaysWhereItIsWhenAllNamesAreTaken) {
    make({"no day"});
    writeBytes(folder_.at("1970-01-01_1970-01-01.DB"), "");
    for (int i = 1; i <= 1000; ++i)
        writeBytes(folder_.at("1970-01-01_1970-01-01_" + std::to_string(i) + ".DB"), "");
    const Adoption adoption = adoptSetAside(path_);
    EXPECT_THAT(adoption.error, HasSubstr("no archive name is free"));
    EXPECT_EQ(adoption.path, path_);
    EXPECT_TRUE(fs::exists(path_));
}

TEST_F(AdoptionTest, SaysWhatFailed) {
    const Adoption adoption = adoptSetAside(path_);
    EXPECT_THAT(adoption.error, HasSubstr("cannot rename " + path_));
    EXPECT_THAT(adoption.error, HasSubstr("No such file"));
    EXPECT_EQ(adoption.path, path_);
}

// The writer was killed in a transaction, and then the file was set aside with its journal.
TEST_F(AdoptionTest, TakesBackWhatAJournalHolds) {
    make({"2024-03-03"});
    ASSERT_EQ(test::runInChild([&] {
                  Connection connection;
                  if (connection.open(path_, OpenMode::kReadWrite) != 0) return 1;
                  const int code = connection.execute(
                      "PRAGMA cache_size=1; BEGIN IMMEDIATE;"
                      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000)"
                      " INSERT INTO logs(ldate, msg) SELECT '1999-01-01', hex(randomblob(100)) FROM n");
                  std::_Exit(code == 0 ? 0 : 2);  // in the middle of it
              }),
              0);
    ASSERT_GT(fs::file_size(path_ + "-journal"), 0U);
    const Adoption adoption = adoptSetAside(path_);
    EXPECT_EQ(adoption.error, "");
    EXPECT_EQ(nameFor(adoption.path), "2024-03-03_2024-03-03.DB");
    EXPECT_FALSE(fs::exists(path_ + "-journal"));
    Connection connection;
    ASSERT_EQ(connection.open(adoption.path, OpenMode::kReadOnly), 0);
    Statement count;
    ASSERT_EQ(count.prepare(connection, "SELECT COUNT(*) FROM logs"), 0);
    ASSERT_EQ(count.step(), Statement::kRow);
    EXPECT_EQ(count.columnInt(0), 1);
}

}  // namespace
}  // namespace ombrel
