// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Which databases there are, told from names alone.
#include "tools/ombrel/log_files.h"

#include "tests/unit/archiver_test.h"

namespace ombrel::test::log_files {

namespace {

Lines pathsOf(const LogFiles& found) {
    Lines paths;
    for (const LogFile& file : found.files)
        paths.push_back(file.path.substr(std::string(kDest).size() + 1));
    return paths;
}

class LogFilesFound : public ArchiverTest {
protected:
    void add(const std::string& name) { platform.addFile(kDest + ("/" + name), "1234"); }
};

TEST_F(LogFilesFound, WorkingOnesFirstThenArchivesTheNewestFirst) {
    platform.addDatabase(kSharedDb, march());
    for (const char* name :
         {"2024-03-03_2024-03-09.DB", "2024-03-10_2024-03-11_2.DB", "2024-03-10_2024-03-11_10.ZIP",
          "2024-03-10_2024-03-11.DB", "router/2024-03-12_2024-03-13.ZIP"})
        add(name);
    EXPECT_EQ(pathsOf(findLogFiles(archiver, LogPlaces::kAll)),
              Lines({"VESKSYSLOGDB__ARCH.DB", "router/2024-03-12_2024-03-13.ZIP", "2024-03-10_2024-03-11_10.ZIP",
                     "2024-03-10_2024-03-11_2.DB", "2024-03-10_2024-03-11.DB", "2024-03-03_2024-03-09.DB"}));
    EXPECT_EQ(pathsOf(findLogFiles(archiver, LogPlaces::kWorking)), Lines({"VESKSYSLOGDB__ARCH.DB"}));
    EXPECT_EQ(findLogFiles(archiver, LogPlaces::kArchives).files.size(), 5U);
}

TEST_F(LogFilesFound, KnowTheirDaysKindAndSize) {
    add("2024-03-03_2024-03-09_1.ZIP");
    const LogFiles found = findLogFiles(archiver, LogPlaces::kAll);
    ASSERT_EQ(found.files.size(), 1U);
    EXPECT_EQ(found.files[0].kind, LogFile::Kind::kZip);
    EXPECT_EQ(found.files[0].firstDay, "2024-03-03");
    EXPECT_EQ(found.files[0].lastDay, "2024-03-09");
    EXPECT_EQ(found.files[0].bytes, 4U);
    EXPECT_EQ(found.notes, Lines());
}

TEST_F(LogFilesFound, PassOverWhateverIsNoDatabase) {
    for (const char* name :
         {"2024-03-03_2024-03-09.TXT", "2024-03-03_2024-03-09.DB-journal", "2024-03-03_2024-03-09_x.DB",
          "2024-03-03_2024-03-09_.DB", "2024-3-3_2024-03-09.DB", "2024-03-03-2024-03-09.DB", "notes.DB",
          "VESKSYSLOGDB__ARCH.DB-receipts", "VESKSYSLOGDB__ARCH.DB.corrupt-1", "@tmp/2024-03-03_2024-03-09.DB",
          "a/b/2024-03-03_2024-03-09.DB", ".2024-03-03_2024-03-09.DB"})
        add(name);
    EXPECT_EQ(pathsOf(findLogFiles(archiver, LogPlaces::kAll)), Lines());
}

TEST_F(LogFilesFound, HoldWorkingOnesThatTheSettingsNoLongerName) {
    add("router/VESKSYSLOGDB_router.DB");
    const LogFiles found = findLogFiles(archiver, LogPlaces::kWorking);
    ASSERT_EQ(found.files.size(), 1U);
    EXPECT_EQ(found.files[0].device, "router");
    archiver.ByDevice = 1;
    EXPECT_EQ(findLogFiles(archiver, LogPlaces::kWorking).files.size(), 1U);
}

TEST_F(LogFilesFound, TellOfAFolderThatCannotBeRead) {
    archiver.strArchDest = "/nowhere";
    EXPECT_EQ(findLogFiles(archiver, LogPlaces::kAll).notes, Lines({"/nowhere: No such file or directory"}));
}

TEST_F(LogFilesFound, AreWhateverIsNamed) {
    add("mine.db");
    const auto file = logFileAt(kDest + std::string("/mine.db"));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->kind, LogFile::Kind::kArchive);
    EXPECT_EQ(file->firstDay, "");
    EXPECT_FALSE(logFileAt(kDest));
    EXPECT_FALSE(logFileAt(kDest + std::string("/none.DB")));
}

}  // namespace

}  // namespace ombrel::test::log_files
