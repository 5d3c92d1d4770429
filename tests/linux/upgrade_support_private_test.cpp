// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The library's support of an upgrade on real databases, settings and shares.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ombrel/postprocessor.h"
#include "ombrel/utils_updater.h"
#include "platform/vesksyslog.h"
#include "tests/linux/child_process.h"
#include "tests/linux/private_world.h"
#include "tests/linux/test_database.h"

namespace ombrel {
namespace {

using test::readBytes;
using test::rowsOf;
using ::testing::HasSubstr;

constexpr const char* kConfFolder = "/var/packages/Ombrel/target/service/conf";

class UpgradeSupport : public test::PrivateRootTest {
protected:
    void SetUp() override {
        PrivateRootTest::SetUp();
        if (IsSkipped()) return;
        oldPath = folder + "/old.DB";
        newPath = folder + "/new.DB";
    }
    static void execute(const std::string& path, const std::string& sql) {
        Connection connection;
        ASSERT_EQ(connection.open(path, OpenMode::kReadWrite), 0);
        ASSERT_EQ(connection.execute(sql.c_str()), 0) << connection.lastMessage();
    }
    static void writeSettings(const std::string& databaseShare, const std::string& databasePath) {
        std::filesystem::create_directories(kConfFolder);
        std::string text;
        for (const char* key : {"server_port", "server_ietf_port", "arch_time", "arch_size", "arch_count"})
            text += std::string(key) + "=\"1\"\n";
        for (const char* key : {"server_trans", "server_ietf_trans"})
            text += std::string(key) + "=\"tcp\"\n";
        for (const char* key :
             {"server_ssl", "server_ietf_ssl", "arch_time_enable", "arch_count_enable", "arch_compress",
              "arch_by_device", "arch_last_time", "system_flush_line", "system_flush_timeout"})
            text += std::string(key) + "=\"0\"\n";
        text += "server_ca_key=\"\"\nserver_ca_file=\"\"\narch_fmt=\"db\"\narch_dest=\"/srv/archive\"\n";
        text += "server_db_loc=\"" + databaseShare + "\"\nserver_db_path=\"" + databasePath + "\"\n";
        write(std::string(kConfFolder) + "/server.conf", text);
    }

    std::string oldPath;
    std::string newPath;
};

TEST_F(UpgradeSupport, FollowsAConversionFromItsBeginToItsEnd) {
    contract::makeLinuxVersion1Database(oldPath, rowsOf({"a", "b", "c"}));
    const std::string before = readBytes(oldPath);
    EXPECT_TRUE(SyslogUpdaterOldDbCheck(oldPath));
    EXPECT_EQ(SyslogUpdaterOldDbTotalGet(oldPath), 3);
    EXPECT_FALSE(SyslogUpdaterUpdDbCheck(newPath));
    EXPECT_LT(SyslogUpdaterUpdDbProgGet(newPath), 0);
    EXPECT_FALSE(SyslogUpdaterUpdCompete(oldPath, newPath));
    EXPECT_FALSE(std::filesystem::exists(newPath)) << "made by a question";

    contract::makeLinuxLogDatabase(newPath, rowsOf({"a", "b"}));
    EXPECT_TRUE(SyslogUpdaterUpdDbCheck(newPath));
    EXPECT_FALSE(SyslogUpdaterOldDbCheck(newPath));
    EXPECT_EQ(SyslogUpdaterUpdDbProgGet(newPath), 2);
    EXPECT_FALSE(SyslogUpdaterUpdCompete(oldPath, newPath));

    contract::makeLinuxLogDatabase(newPath, rowsOf({"a", "b", "c"}));
    EXPECT_TRUE(SyslogUpdaterUpdCompete(oldPath, newPath));
    EXPECT_EQ(readBytes(oldPath), before);
}

TEST_F(UpgradeSupport, OfNoRowsIsCompleteAtOnce) {
    contract::makeLinuxVersion1Database(oldPath, {});
    contract::makeLinuxLogDatabase(newPath, {});
    EXPECT_EQ(SyslogUpdaterOldDbTotalGet(oldPath), 0);
    EXPECT_EQ(SyslogUpdaterUpdDbProgGet(newPath), 0);
    EXPECT_TRUE(SyslogUpdaterUpdCompete(oldPath, newPath));
}

TEST_F(UpgradeSupport, TakesWhatIsNoDatabaseForOldAndCountsNothingInIt) {
    write(oldPath, "This is no database.\n");
    EXPECT_TRUE(SyslogUpdaterOldDbCheck(oldPath));
    EXPECT_EQ(SyslogUpdaterOldDbTotalGet(oldPath), -1);
    EXPECT_EQ(readBytes(oldPath), "This is no database.\n");
}

TEST_F(UpgradeSupport, CannotTellCountsThatAreNoInt) {
    contract::makeLinuxLogDatabase(newPath, rowsOf({"a"}));
    execute(newPath, "UPDATE loginfo SET row_count = 2147483648");
    EXPECT_EQ(SyslogUpdaterUpdDbProgGet(newPath), -2147483647 - 1);
    EXPECT_TRUE(SyslogUpdaterOldDbCheck(newPath));
}

TEST_F(UpgradeSupport, KnowsItsFolders) {
    if (::access("/usr/bin/testparm", X_OK) != 0) GTEST_SKIP() << "testparm is not installed";
    if (::access("/etc/samba/smb.conf", F_OK) != 0) GTEST_SKIP() << "/etc/samba/smb.conf is missing";
    const std::string share = makeFolder("share of logs");
    write(folder + "/smb.conf", "[Logs]\npath = " + share + "\n");
    bind(folder + "/smb.conf", "/etc/samba/smb.conf");
    writeSettings("Logs", "/srv/logs/db");
    EXPECT_EQ(SyslogUpdaterServiceFolderGet(), share);
    EXPECT_EQ(SyslogUpdaterArchiveFolderGet(), "/srv/archive");
    EXPECT_EQ(SyslogUpdaterVolTmpFolderGet(), "/srv/@tmp/");
    EXPECT_TRUE(std::filesystem::is_directory("/srv/@tmp"));
    writeSettings("Other", "/srv");
    EXPECT_EQ(SyslogUpdaterServiceFolderGet(), "");
    EXPECT_EQ(SyslogUpdaterVolTmpFolderGet(), "");
}

std::string exported(const std::string& path) {
    const std::string text = path + ".TXT";
    EXPECT_EQ(PostProcessor().DB2TXT(path, text), 0);
    return readBytes(text);
}

TEST_F(UpgradeSupport, TheTextOfAnUpgradedDatabaseIsThatOfTheOldOne) {
    const auto rows = rowsOf({"plain", "short day", "leap second", "no text", "no UTF-8", "a NUL", "no severity"});
    contract::makeLinuxVersion1Database(oldPath, rows);
    contract::makeLinuxLogDatabase(newPath, rows);
    const std::string texts =
        " SELECT 2, '2024-3-5', '9:00' UNION ALL SELECT 3, '2024-03-03', '23:59:60' UNION ALL SELECT 4, '', ''"
        " UNION ALL SELECT 5, CAST(X'FFC0' AS TEXT), CAST(X'E282' AS TEXT)"
        " UNION ALL SELECT 6, CAST(X'610062' AS TEXT), CAST(X'63000A64' AS TEXT)";
    execute(oldPath,
            "UPDATE logs SET (ldate, ltime) = (SELECT d, t FROM (SELECT NULL AS i, NULL AS d, NULL AS t"
            " UNION ALL" +
                texts +
                ") WHERE i = logs.id) WHERE id BETWEEN 2 AND 6;"
                "UPDATE logs SET prio = 'sometimes' WHERE id = 7");
    execute(newPath,
            "CREATE TABLE original_texts (log_id INTEGER PRIMARY KEY, ldate TEXT, ltime TEXT, prio TEXT);"
            "INSERT INTO original_texts(log_id, ldate, ltime)" +
                texts +
                ";"
                "INSERT INTO original_texts VALUES(7, NULL, NULL, 'sometimes');"
                "UPDATE logs SET severity = -1 WHERE id = 7");
    const std::string before = exported(oldPath);
    EXPECT_EQ(exported(newPath), before);
    EXPECT_THAT(before, HasSubstr("2024-3-5\t9:00\t"));
    EXPECT_THAT(before, HasSubstr("\t-1\t"));
}

}  // namespace
}  // namespace ombrel
