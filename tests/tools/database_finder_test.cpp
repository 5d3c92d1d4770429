// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The search, on real databases of both layouts.
#include "tools/ombrel-upgrade/database_finder.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "linux/common/sqlite_db.h"
#include "tests/contract/linux_makers.h"
#include "tests/linux/child_process.h"

namespace fs = std::filesystem;

namespace ombrel {
namespace {

using contract::makeLinuxLogDatabase;
using contract::makeLinuxVersion1Database;
using contract::Row;
using test::TemporaryFolder;
using test::writeBytes;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

const std::vector<Row> kThreeRows(3, Row{1'709'424'000, 6, "alpha", "auth", "sshd", "hello"});

class DatabaseFinderTest : public ::testing::Test {
protected:
    std::string old(const std::string& name) { return make(name, makeLinuxVersion1Database); }
    std::string current(const std::string& name) { return make(name, makeLinuxLogDatabase); }
    std::string text(const std::string& name) {
        return make(name, [](const std::string& path, const auto&) { writeBytes(path, "this is text\n"); });
    }
    std::string damaged(const std::string& name) {
        std::string path = old(name);
        fs::resize_file(path, 1000);
        return path;
    }

    /// The paths found, without the folder of the test.
    std::vector<std::string> names(const std::vector<FoundDatabase>& files) const {
        std::vector<std::string> found;
        found.reserve(files.size());
        for (const FoundDatabase& file : files)
            found.push_back(fs::relative(file.path, folder_.path()));
        return found;
    }
    Findings inFolder(const DatabaseFinder::ZipProbe& zip = nullptr) const {
        DatabaseFinder finder({zip});
        finder.addFolder(folder_.path());
        return finder.take();
    }
    static FindNote noteOn(const std::string& path, const DatabaseFinder::ZipProbe& zip = nullptr) {
        DatabaseFinder finder({zip});
        finder.addPath(path);
        const Findings findings = finder.take();
        EXPECT_THAT(findings.databases, IsEmpty()) << path;
        return findings.notes.empty() ? FindNote{"nothing", -1} : findings.notes.front();
    }

    TemporaryFolder folder_;

private:
    template <typename Maker>
    std::string make(const std::string& name, Maker maker) {
        std::string path = folder_.at(name);
        fs::create_directories(fs::path(path).parent_path());
        maker(path, kThreeRows);
        return path;
    }
};

TEST_F(DatabaseFinderTest, FindsOldDatabasesInAFolderAndItsSubFolders) {
    (void)old("b.DB");
    (void)old("host/2024-03-03_2024-03-09.DB");
    (void)old("VESKSYSLOGDB__ARCH.DB");
    (void)old("a.DB.old-1");
    (void)old("a.DB.corrupt-12");
    (void)old("host/VESKSYSLOGDB_host.DB");
    for (const char* no : {"a.DB.v1", "a.db", "a.DB.old-", "a.DB.old-1x", "a.DB-journal", ".hidden.DB", "a.DB.bak",
                           ".hidden/c.DB", "@tmp/c.DB", "host/deeper/c.DB"})
        (void)old(no);
    (void)current("new.DB");
    (void)text("text.DB");
    writeBytes(folder_.at("empty.DB"), "");
    fs::create_directory(folder_.at("folder.DB"));
    fs::create_symlink(folder_.at("b.DB"), folder_.at("link.DB"));
    fs::create_directory_symlink(folder_.at("host"), folder_.at("linked"));
    ASSERT_EQ(::mkfifo(folder_.at("fifo.DB").c_str(), 0600), 0);
    const Findings found = inFolder();
    EXPECT_THAT(names(found.databases),
                ElementsAre("VESKSYSLOGDB__ARCH.DB", "host/VESKSYSLOGDB_host.DB", "a.DB.corrupt-12", "a.DB.old-1",
                            "b.DB", "host/2024-03-03_2024-03-09.DB"));
    EXPECT_THAT(found.notes, IsEmpty());
    for (const FoundDatabase& file : found.databases) {
        EXPECT_EQ(file.rows, 3) << file.path;
        EXPECT_EQ(file.bytes, fs::file_size(file.path)) << file.path;
        EXPECT_EQ(file.kind == OldKind::kSetAside, file.path.find(".DB.") != std::string::npos) << file.path;
    }
}

TEST_F(DatabaseFinderTest, CountsEachFileOnce) {
    const std::string path = old("host/a.DB");
    fs::create_hard_link(path, folder_.at("z.DB"));
    DatabaseFinder finder({});
    finder.addFolder(folder_.path() + "/");
    finder.addFolder(folder_.at("host"));
    finder.addPath(path);
    finder.addPath(folder_.at("host/../host/./a.DB"));
    const Findings found = finder.take();
    EXPECT_EQ(found.databases.size(), 1U);
    EXPECT_THAT(found.notes, IsEmpty());
}

TEST_F(DatabaseFinderTest, OneThatIsDamagedDoesNotHideTheOthers) {
    (void)old("good.DB");
    const std::string bad = damaged("bad.DB");
    const std::string known = damaged("bad.DB.corrupt-1");
    const Findings found = inFolder();
    EXPECT_THAT(names(found.databases), ElementsAre("good.DB"));
    ASSERT_EQ(found.notes.size(), 2U);
    for (const FindNote& note : found.notes) {
        const bool isKnown = note.text.find(known) != std::string::npos;
        EXPECT_THAT(note.text, HasSubstr((isKnown ? known : bad) + " is damaged"));
        EXPECT_EQ(note.exitCode, isKnown ? 0 : EX_DATAERR);
    }
}

TEST_F(DatabaseFinderTest, AFolderThatIsMissingOrClosedIsSaid) {
    DatabaseFinder finder({});
    finder.addFolder(folder_.at("nowhere"));
    finder.addFolder(text("file"));
    const Findings found = finder.take();
    ASSERT_EQ(found.notes.size(), 2U);
    EXPECT_EQ(found.notes[0].text, "there is no folder " + folder_.at("nowhere"));
    EXPECT_EQ(found.notes[0].exitCode, 0);
    EXPECT_THAT(found.notes[1].text, HasSubstr("cannot read " + folder_.at("file") + ": Not a directory"));
    EXPECT_NE(found.notes[1].exitCode, 0);
}

TEST_F(DatabaseFinderTest, SaysWhatIsWrongWithAPath) {
    const std::string good = old("good.DB");
    const auto zipWith = [](int databases, const std::string& error) {
        return [=](const std::string&) { return ZipContents{error, "", databases, 1000}; };
    };
    fs::create_symlink(good, folder_.at("link.DB"));
    const struct {
        std::string path;
        DatabaseFinder::ZipProbe zip;
        const char* said;
        int exitCode;
    } kCases[] = {
        {folder_.at("missing.DB"), nullptr, "there is no file", EX_NOINPUT},
        {good + "/x.DB", nullptr, "there is no file", EX_NOINPUT},
        {folder_.path(), nullptr, "is a folder; name the databases in it, or use --all", EX_USAGE},
        {"/", nullptr, "is a folder", EX_USAGE},
        {folder_.at("link.DB"), nullptr, "is a symbolic link", EX_USAGE},
        {"/dev/null", nullptr, "is no file", EX_USAGE},
        {text("text.DB"), nullptr, "is no log database", EX_DATAERR},
        {damaged("bad.DB"), nullptr, "is damaged", EX_DATAERR},
        {damaged("bad.DB.corrupt-1"), nullptr, "is damaged", EX_DATAERR},
        {current("new.DB"), nullptr, "has the current layout already", 0},
        {current("new.DB.old-1"), nullptr, "has the current layout already", 0},
        {old("a.DB.v1"), nullptr, "kept of the old file", EX_USAGE},
        {text("a.ZIP"), nullptr, "add --zip", EX_USAGE},
        {text("a.ZIP"), zipWith(0, "cannot read the ZIP file"), "cannot read the ZIP file", EX_DATAERR},
        {text("a.ZIP"), zipWith(0, ""), "holds no database of the old layout", 0},
    };
    for (const auto& one : kCases) {
        const FindNote note = noteOn(one.path, one.zip);
        EXPECT_THAT(note.text, HasSubstr(one.said)) << one.path;
        EXPECT_EQ(note.exitCode, one.exitCode) << one.path;
    }
}

TEST_F(DatabaseFinderTest, MakesAPathAbsolute) {
    const std::string path = old("sub/any name");
    const fs::path before = fs::current_path();
    fs::create_directory_symlink(folder_.at("sub"), folder_.at("to-sub"));
    DatabaseFinder finder({});
    fs::current_path(folder_.path());
    finder.addPath("to-sub/any name");
    fs::current_path(before);
    const Findings found = finder.take();
    ASSERT_EQ(found.databases.size(), 1U);
    EXPECT_EQ(found.databases[0].path, fs::canonical(path));
}

TEST_F(DatabaseFinderTest, LooksIntoZipFilesWhenAskedTo) {
    (void)text("a.ZIP");
    (void)text("b.ZIP");
    (void)text("c.zip");
    (void)text("d.ZIP");
    const std::string d = folder_.at("d.ZIP");
    const auto probe = [&](const std::string& path) {
        if (path == d) return ZipContents{"cannot read " + path, "", 0, 0};
        return path.ends_with("a.ZIP") ? ZipContents{"", "", 2, 5000}
                                       : ZipContents{"", "an entry is encrypted", 0, 0};
    };
    EXPECT_THAT(inFolder().databases, IsEmpty());
    const Findings found = inFolder(probe);
    ASSERT_THAT(names(found.databases), ElementsAre("a.ZIP"));
    EXPECT_EQ(found.databases[0].kind, OldKind::kZip);
    EXPECT_EQ(found.databases[0].databases, 2);
    EXPECT_EQ(found.databases[0].unpackedBytes, 5000U);
    std::map<std::string, int> notes;
    for (const FindNote& note : found.notes)
        notes[note.text] = note.exitCode;
    EXPECT_THAT(notes, ElementsAre(Pair("an entry is encrypted", 0), Pair("cannot read " + d, EX_DATAERR)));
}

TEST_F(DatabaseFinderTest, KnowsHowFarAnEarlierRunCame) {
    (void)old("a.DB");
    (void)old("b.DB");
    (void)old("c.DB");
    std::string work = current("work");
    std::string noWork = text("no work");
    const auto placeOf = [&](const std::string& path) {
        if (path.ends_with("a.DB")) return work;
        return path.ends_with("b.DB") ? noWork : folder_.at("nothing");
    };
    const auto bytesOf = [](const std::string& path) { return path.ends_with("c.DB") ? 0ULL : 4711ULL; };
    DatabaseFinder finder({nullptr, placeOf, bytesOf});
    finder.addFolder(folder_.path());
    const Findings found = finder.take();
    ASSERT_THAT(names(found.databases), ElementsAre("a.DB", "b.DB", "c.DB"));
    EXPECT_EQ(found.databases[0].workRows, 3);
    EXPECT_EQ(found.databases[0].workBytes, 4711U);
    EXPECT_EQ(found.databases[1].workRows, 0);
    EXPECT_EQ(found.databases[1].workBytes, 4711U);
    EXPECT_EQ(found.databases[2].workRows, 0);
}

TEST(SetAsideNames, AreThoseOfTheLogWriter) {
    for (const char* name : {"a.DB.old-1", "a.DB.corrupt-1000", "VESKSYSLOGDB__ARCH.DB.old-7"})
        EXPECT_TRUE(isSetAsideName(name)) << name;
    for (const char* name : {"a.DB", "a.DB.old-", "a.DB.old-1.v1", "a.DB.old--1", ".DB.old-1", "a.old-1", ""})
        EXPECT_FALSE(isSetAsideName(name)) << name;
}

}  // namespace
}  // namespace ombrel
