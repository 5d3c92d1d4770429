// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The receipts in a database and beside it.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "linux/common/receipts.h"
#include "tests/linux/child_process.h"
#include "tests/linux/test_database.h"

namespace ombrel {
namespace {

using test::readBytes;
using test::TemporaryFolder;
using test::writeBytes;
using ::testing::IsEmpty;

class ReceiptsFile : public ::testing::Test {
protected:
    TemporaryFolder folder;
    std::string path = folder.at("VESKSYSLOGDB__ARCH.DB-receipts");
    Receipts receipts;
};

TEST_F(ReceiptsFile, StandsBesideItsDatabase) {
    EXPECT_EQ(receiptsPathOf("/srv/logs/VESKSYSLOGDB__ARCH.DB"), "/srv/logs/VESKSYSLOGDB__ARCH.DB-receipts");
}

TEST_F(ReceiptsFile, GivesBackWhatWasSaved) {
    std::string allBytes;
    for (int byte = 0; byte < 256; ++byte)
        allBytes += static_cast<char>(byte);
    const Receipts saved = {{"bsd", allBytes}, {"", "x"}, {std::string("odd\n\0", 5), ""}};
    ASSERT_TRUE(saveReceiptsFile(path, saved));
    ASSERT_TRUE(loadReceiptsFile(path, receipts));
    EXPECT_EQ(receipts, saved);
}

TEST_F(ReceiptsFile, IsReplacedWhole) {
    ASSERT_TRUE(saveReceiptsFile(path, {{"bsd", "111"}, {"ietf", "222"}}));
    ASSERT_TRUE(saveReceiptsFile(path, {{"bsd", "333"}}));
    ASSERT_TRUE(loadReceiptsFile(path, receipts));
    EXPECT_EQ(receipts, (Receipts{{"bsd", "333"}}));
    EXPECT_FALSE(std::filesystem::exists(path + ".new"));
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600U);
}

TEST_F(ReceiptsFile, MissingHoldsNothing) {
    receipts["old"] = "left over";
    EXPECT_TRUE(loadReceiptsFile(path, receipts));
    EXPECT_THAT(receipts, IsEmpty());
}

TEST_F(ReceiptsFile, ThatIsCutOffAnywhereIsRefused) {
    ASSERT_TRUE(saveReceiptsFile(path, {{"bsd", "123456789012"}, {"ietf", "abc"}}));
    const std::string whole = readBytes(path);
    for (size_t length = 0; length + 1 < whole.size(); ++length) {
        writeBytes(path, whole.substr(0, length));
        EXPECT_FALSE(loadReceiptsFile(path, receipts)) << length << " bytes";
        EXPECT_EQ(errno, EBADMSG);
        EXPECT_THAT(receipts, IsEmpty());
    }
}

TEST_F(ReceiptsFile, OfAnotherKindIsRefused) {
    for (const std::string bytes :
         {"text\n", "ombrel-receipts 2\nend 0\n", "ombrel-receipts 1\nzz 00\nend 1\n",
          "ombrel-receipts 1\n00 0\nend 1\n", "ombrel-receipts 1\n0011\nend 1\n", "ombrel-receipts 1\nend 1\n"}) {
        writeBytes(path, bytes);
        EXPECT_FALSE(loadReceiptsFile(path, receipts)) << bytes;
    }
}

TEST_F(ReceiptsFile, ThatCannotBeWrittenLeavesTheOldOne) {
    ASSERT_TRUE(saveReceiptsFile(path, {{"bsd", "111"}}));
    std::filesystem::create_directory(path + ".new");  // the temporary name is taken by a folder
    EXPECT_FALSE(saveReceiptsFile(path, {{"bsd", "222"}}));
    EXPECT_EQ(errno, EISDIR);
    ASSERT_TRUE(loadReceiptsFile(path, receipts));
    EXPECT_EQ(receipts, (Receipts{{"bsd", "111"}}));
    EXPECT_FALSE(saveReceiptsFile(folder.at("nowhere/file"), {}));
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(ReceiptsFile, HasItsContentsFromTheTable) {
    test::makeDatabase(folder.at("logs.DB"), {"row"});
    Connection connection;
    ASSERT_EQ(connection.open(folder.at("logs.DB"), OpenMode::kReadWrite), 0);
    ASSERT_EQ(loadReceipts(connection, receipts), 0);
    EXPECT_THAT(receipts, IsEmpty());
    ASSERT_EQ(connection.execute("INSERT INTO receipts VALUES('bsd', X'00ff'), ('ietf', X'')"), 0);
    ASSERT_EQ(loadReceipts(connection, receipts), 0);
    EXPECT_EQ(receipts, (Receipts{{"bsd", std::string("\0\xff", 2)}, {"ietf", ""}}));
    ASSERT_EQ(connection.execute("DROP TABLE receipts"), 0);
    ASSERT_EQ(loadReceipts(connection, receipts), 0);
    EXPECT_THAT(receipts, IsEmpty());
}

}  // namespace
}  // namespace ombrel
