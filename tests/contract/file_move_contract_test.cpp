// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Carrying a file over to another name, on every platform.
#include <gmock/gmock.h>

#include <string>

#include "platform/veskfileop.h"
#include "platform/vesksyslog.h"
#include "tests/contract/contract_fixture.h"

namespace ombrel::contract {
namespace {

class FileMove : public ContractTest {
protected:
    static int move(const std::string& from, const std::string& to) {
        const VESK_COPY_OPTIONS options{};
        return VESKFileCopy(from.c_str(), to.c_str(), &options);
    }
};

TEST_F(FileMove, LeavesNothingUnderTheOldName) {
    const std::string from = file("companion_SYS", std::string("text\0with a NUL", 15));
    ASSERT_EQ(move(from, at("archive_SYS")), 0);
    EXPECT_FALSE(world->exists(from));
    EXPECT_EQ(bytesOf(at("archive_SYS")), std::string("text\0with a NUL", 15));
}

TEST_F(FileMove, MovesAnEmptyFile) {
    const std::string from = file("companion_CON", "");
    ASSERT_EQ(move(from, at("archive_CON")), 0);
    EXPECT_FALSE(world->exists(from));
    EXPECT_EQ(bytesOf(at("archive_CON")), "");
}

TEST_F(FileMove, RefusesATakenNameAndLeavesBothFiles) {
    const std::string from = file("from", "new");
    const std::string to = file("to", "old");
    EXPECT_NE(move(from, to), 0);
    EXPECT_EQ(bytesOf(from), "new");
    EXPECT_EQ(bytesOf(to), "old");
}

TEST_F(FileMove, FailsOnAMissingSource) {
    EXPECT_NE(move(at("none"), at("to")), 0);
    EXPECT_FALSE(world->exists(at("to")));
}

TEST_F(FileMove, FailsOnAMissingDestinationFolder) {
    const std::string from = file("from", "text");
    EXPECT_NE(move(from, at("nowhere/to")), 0);
    EXPECT_EQ(bytesOf(from), "text");
}

TEST_F(FileMove, MovesIntoAnotherFolder) {
    world->makeFolder(at("host7"));
    const std::string from = file("from", "text");
    ASSERT_EQ(move(from, at("host7/to")), 0);
    EXPECT_FALSE(world->exists(from));
    EXPECT_EQ(bytesOf(at("host7/to")), "text");
}

TEST_F(FileMove, KeepsTheRowsOfALogDatabase) {
    if (world->isFake()) GTEST_SKIP() << "the fake's databases stand beside its files";
    ASSERT_TRUE(world->makeLogDatabase(at("VESKSYSLOGDB__ARCH.DB"),
                                       {{1709467200, 6, "host7", "local0", "sshd", "first"},
                                        {1709467201, 6, "host7", "local0", "sshd", "second"}}))
        << world->whyNot();
    ASSERT_EQ(move(at("VESKSYSLOGDB__ARCH.DB"), at("2024-03-03_2024-03-03.DB")), 0);
    EXPECT_FALSE(world->exists(at("VESKSYSLOGDB__ARCH.DB")));
    EXPECT_FALSE(world->exists(at("VESKSYSLOGDB__ARCH.DB-journal")));
    DBHandler archive(at("2024-03-03_2024-03-03.DB"), "/usr/vesk/syslog/schema/loginfo2.sql");
    ASSERT_GE(archive.DBCon(), 0);
    EXPECT_EQ(archive.DBInfoCntGet(), 2);
}

TEST_F(FileMove, RefusesAFolder) {
    if (world->isFake()) GTEST_SKIP() << "the fake renames whatever it finds";
    world->makeFolder(at("folder"));
    EXPECT_NE(move(at("folder"), at("to")), 0);
    EXPECT_TRUE(world->exists(at("folder")));
    EXPECT_FALSE(world->exists(at("to")));
}

TEST_F(FileMove, RefusesAnEmptyName) {
    if (world->isFake()) GTEST_SKIP() << "the fake looks at no name";
    const std::string from = file("from", "text");
    EXPECT_NE(move(from, ""), 0);
    EXPECT_NE(move("", at("to")), 0);
    EXPECT_EQ(bytesOf(from), "text");
}

}  // namespace
}  // namespace ombrel::contract
