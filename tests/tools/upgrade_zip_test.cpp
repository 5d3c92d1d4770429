// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What becomes of sound ZIP files, whoever has made them.
#include "tools/ombrel-upgrade/upgrade_zip.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <ostream>
#include <vector>

#include "tests/tools/zipped_databases.h"

namespace fs = std::filesystem;

namespace ombrel::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;

TEST_F(ZippedDatabases, AreFoundAmongOtherFiles) {
    makeOld("srv/logs/a.DB", 100, 1);
    makeOld("srv/logs/b.db", 3000, 2);
    makeOld("srv/logs/c.DB", 10, 3);
    const auto bytes = fs::file_size(root + "/srv/logs/a.DB") + fs::file_size(root + "/srv/logs/b.db");
    (void)convertedBytes(root + "/srv/logs/c.DB");
    makeOld("srv/logs/other.dat");
    writeBytes(root + "/srv/logs/empty.DB", "");
    writeBytes(root + "/srv/logs/text.DB", std::string(3'000'000, 'x'));
    writeBytes(root + "/srv/logs/head.DB", std::string("SQLite format 3\0", 16) + std::string(5000, '\0'));
    writeBytes(root + "/srv/logs/half.DB", readBytes(root + "/srv/logs/b.db").substr(0, 8192));
    writeBytes(root + "/DB", "x");
    fs::create_directory(root + "/srv/logs/folder.DB");
    pack({"srv", "DB"}, {"-r"});
    const ZipContents contents = oldDatabasesInZip(zip);
    EXPECT_EQ(contents.error, "");
    EXPECT_EQ(contents.notice, "");
    EXPECT_EQ(contents.oldDatabases, 2);
    EXPECT_EQ(contents.bytes, bytes);
}

TEST_F(ZippedDatabases, AreFoundWhateverTheirJournalModeAndPageSize) {
    int count = 0;
    for (const char* settings : {"PRAGMA journal_mode=WAL", "PRAGMA page_size=512; VACUUM",
                                 "PRAGMA page_size=65536; VACUUM", "PRAGMA auto_vacuum=FULL; VACUUM"}) {
        const std::string name = "srv/logs/" + std::to_string(++count) + ".DB";
        makeOld(name, 200);
        changeDatabase(name, settings);
    }
    pack({"srv"}, {"-r"});
    EXPECT_EQ(oldDatabasesInZip(zip).oldDatabases, count);
    upgradeWell(200LL * count);
    expectTheRestAsBefore();
}

TEST_F(ZippedDatabases, AreConvertedAndTheRestStaysAsItWas) {
    packArchive();
    const std::string old = readBytes(zip);
    const auto changed = fs::last_write_time(zip);
    upgradeWell(100);
    EXPECT_TRUE(readBytes(zip + ".v1") == old);
    EXPECT_EQ(fs::last_write_time(zip), changed);
    expectTheRestAsBefore();
    EXPECT_TRUE(contentsOf(zip, entriesOf(zip)[0]) == convertedBytes(plain));
    EXPECT_THAT(watch.stages, IsSupersetOf({UpgradeStage::kUnpacking, UpgradeStage::kConverting,
                                            UpgradeStage::kVerifying, UpgradeStage::kPacking}));
}

TEST_F(ZippedDatabases, AreConvertedOnce) {
    packArchive();
    upgradeWell(100);
    const std::string once = readBytes(zip);
    upgradeWell(0);
    EXPECT_TRUE(readBytes(zip) == once);
}

TEST_F(ZippedDatabases, GoWithTheOldFileOnRequest) {
    packArchive();
    EXPECT_EQ(upgrade(true).end, UpgradeEnd::kDone);
    EXPECT_FALSE(fs::exists(zip + ".v1"));
    EXPECT_EQ(oldDatabasesInZip(zip).oldDatabases, 0);
}

TEST_F(ZippedDatabases, KeepTheOldFileWhenItAloneHoldsSomething) {
    packArchive(100, "CREATE TABLE notes(x)");
    const UpgradeOutcome outcome = upgrade(true);
    EXPECT_EQ(outcome.end, UpgradeEnd::kDone) << outcome.error;
    EXPECT_THAT(outcome.notice, AllOf(HasSubstr(zip + ".v1 was kept"), HasSubstr("table notes")));
    EXPECT_TRUE(fs::exists(zip + ".v1"));
}

// Logs are packed to a tenth and less: what counts is how much of them has been read.
TEST_F(ZippedDatabases, TellEveryQuarterMebibyteThatIsPackedAndReadBack) {
    packArchive(10'000);
    std::vector<long long> packing;
    watch.onCall = [&](UpgradeStage stage) {
        if (stage == UpgradeStage::kPacking) packing.push_back(watch.last);
    };
    upgradeWell(10'000);
    ASSERT_GT(packing.size(), 10U);
    for (std::size_t i = 1; i < packing.size(); ++i)
        EXPECT_LE(packing[i] - packing[i - 1], 600'000) << i;
}

TEST_F(ZippedDatabases, OfTwoArchivesAreBothConverted) {
    makeOld("srv/logs/a.DB", 70, 1);
    makeOld("srv/logs/b.DB", 30, 2);
    pack({"srv"}, {"-r"});
    upgradeWell(100);
    expectTheRestAsBefore();
}

struct Way {
    const char* name;
    std::vector<std::string> options;
};
void PrintTo(const Way& way, std::ostream* out) {
    *out << way.name;
}

class ZippedDatabasesOf : public ZippedDatabases, public ::testing::WithParamInterface<Way> {};

TEST_P(ZippedDatabasesOf, AreConverted) {
    makeOld(kArchive);
    writeBytes(root + "/" + kText, std::string(3000, 't'));
    writeBytes(root + "/empty", "");
    std::vector<std::string> options = GetParam().options;
    options.emplace_back("-r");
    pack({"srv", "empty"}, options);
    upgradeWell(100);
    expectTheRestAsBefore();
}

INSTANTIATE_TEST_SUITE_P(Ways, ZippedDatabasesOf,
                         ::testing::Values(Way{"Stored", {"-0"}}, Way{"Best", {"-9"}},
                                           Way{"Bzip2", {"-Z", "bzip2"}}, Way{"Zip64", {"-fz"}},
                                           Way{"DataDescriptors", {"-fd"}}, Way{"WithoutExtraFields", {"-X"}},
                                           Way{"WithoutFolders", {"-D"}}),
                         [](const auto& one) { return std::string(one.param.name); });

// What stands in names is of no consequence but for the letters at their end.
TEST_F(ZippedDatabases, MayHaveAnyNames) {
    for (const char* name : {"1234567890.DB", "2345678901.DB", "3456789012.DB", "4567890123.DB", "5678901234.DB"})
        makeOld(name, 20);
    pack({"."}, {"-r"});
    patch("1234567890.DB", "../../../x.DB");
    patch("2345678901.DB", "/etc/passw.DB");
    patch("3456789012.DB", std::string("\x1b[2J\n\r\x07%s/.DB", 13));
    patch("4567890123.DB", "5678901234.DB");  // a second one of this name
    upgradeWell(100);
    expectTheRestAsBefore();
}

// Some programs write no time at all, or what is none.
TEST_F(ZippedDatabases, MayHaveNoTime) {
    packArchive();
    const std::string pristine = readBytes(zip);
    for (const char byte : {'\0', '\xff'}) {
        std::string bytes = pristine;
        for (std::size_t at = 0; (at = bytes.find("PK\1\2", at)) != std::string::npos; ++at)
            bytes.replace(at + 12, 4, std::string(4, byte));
        writeBytes(zip, bytes);
        upgradeWell(100);
        fs::remove(zip + ".v1");
    }
}

TEST_F(ZippedDatabases, MayHaveNamesInAnyEncoding) {
    for (const char* name : {"gr\xc3\xb6\xc3\x9f"
                             "e.DB",
                             "gr\xf6\xdf"
                             "e.DB",
                             "\xe6\x97\xa5.DB"})
        makeOld(name, 20);
    pack({"."}, {"-r"});
    upgradeWell(60);
    expectTheRestAsBefore();
}

TEST_F(ZippedDatabases, KeepTheirComments) {
    packArchive();
    int code = 0;
    zip_t* archive = zip_open(zip.c_str(), 0, &code);
    ASSERT_NE(archive, nullptr);
    EXPECT_EQ(zip_set_archive_comment(archive, "of the whole", 12), 0);
    EXPECT_EQ(zip_file_set_comment(archive, 0, "of the database", 15, 0), 0);
    EXPECT_EQ(zip_file_set_comment(archive, 1, "of the text", 11, 0), 0);
    ASSERT_EQ(zip_close(archive), 0);
    upgradeWell(100);
    expectTheRestAsBefore();
    ZipFile after;
    ASSERT_EQ(after.open(zip), "");
    EXPECT_EQ(after.comment(), "of the whole");
    EXPECT_EQ(after.entries()[0].comment, "of the database");
}

TEST_F(ZippedDatabases, ThatAreEncryptedAreLeftAsTheyAre) {
    makeOld("srv/logs/secret.DB");
    pack({"srv/logs/secret.DB"}, {"-P", "password"});
    makeOld("srv/logs/open.DB");
    pack({"srv/logs/open.DB"});
    const ZipContents contents = oldDatabasesInZip(zip);
    EXPECT_EQ(contents.error, "");
    EXPECT_THAT(contents.notice, AllOf(HasSubstr(zip), HasSubstr("srv/logs/secret.DB: it is encrypted")));
    EXPECT_EQ(contents.oldDatabases, 1);
    const UpgradeOutcome outcome = upgrade();
    EXPECT_EQ(outcome.end, UpgradeEnd::kDone) << outcome.error;
    EXPECT_EQ(outcome.rows, 100);
    EXPECT_EQ(outcome.notice, contents.notice);
    expectTheRestAsBefore();
    EXPECT_EQ(runIn(root, {"/usr/bin/unzip", "-tq", "-P", "password", zip}), 0);
}

TEST_F(ZippedDatabases, ThatArePackedByAnUnknownMethodAreLeftAsTheyAre) {
    makeOld("srv/logs/a.DB");
    makeOld("srv/logs/b.DB");
    pack({"srv"}, {"-r"});
    std::string bytes = readBytes(zip);
    bytes.replace(bytes.rfind("PK\1\2") + 10, 1, "\x09");  // Deflate64
    writeBytes(zip, bytes);
    const UpgradeOutcome outcome = upgrade();
    EXPECT_EQ(outcome.end, UpgradeEnd::kDone) << outcome.error;
    EXPECT_EQ(outcome.rows, 100);
    EXPECT_THAT(outcome.notice, HasSubstr(".DB: it is packed by an unknown method"));
    expectTheRestAsBefore();
}

}  // namespace
}  // namespace ombrel::test
