// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The text export.
#include <sys/stat.h>

#include <cstring>

#include "tests/unit/postprocessor_test.h"

namespace ombrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kTextDb = "/volume1/logs/x.DB";
const std::string kOut = "/volume1/logs/x.TXT";
const std::string kTemporary = "/volume1/@tmp/syslogtranstmp-000001";
const std::string kResolved = "2024-03-03\t01:02:03\twarning\ttable0-1\ttable3-3\ttable1-2\t";
const std::string kAsStored = "2024-03-03\t01:02:03\twarning\t1\t3\t2\t";

class TextExport : public PostProcessorTest {
protected:
    int run() { return processor.DB2TXT(kTextDb, kOut); }
    Lines selects() { return platform.calls.linesOf({"SyslogDBSelect"}); }
    static std::string selectCall(long long offset) {
        return "SyslogDBSelect(\"" + kTextDb + "\", 0, 10000, " + std::to_string(offset) + ", 0, 7, false)";
    }
};

TEST_F(TextExport, WritesOneLineARowWithSevenColumns) {
    platform.addDatabase(kTextDb, textDatabase(2));
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(platform.read(kOut), kResolved + "message 1\r\n" + kResolved + "message 2\r\n");
    EXPECT_TRUE(platform.exists(kTextDb));
    EXPECT_FALSE(platform.exists(kTemporary));
    EXPECT_THAT(platform.messages, IsEmpty());
}

TEST_F(TextExport, CallsThePlatformInThisOrder) {
    platform.addDatabase(kTextDb, textDatabase(1));
    EXPECT_EQ(run(), 0);
    const auto map = [](int type) {
        return "SyslogDBExtkeyMapGet(\"" + kTextDb + "\", " + std::to_string(type) + ")";
    };
    EXPECT_THAT(
        platform.calls.lines(),
        ElementsAre("VESKFSMkdirP(\"/volume1/@tmp/\", 0, 1, -1, -1, 0777)",
                    "mkstemp(\"/volume1/@tmp/syslogtranstmp-XXXXXX\")", "fdopen(\"w\")",
                    "VLIBCFileExist(\"" + kTextDb + "\")", map(0), map(1), map(3),
                    "SyslogDBSelectCount(\"" + kTextDb + "\", 0, false, false)", selectCall(0),
                    "VLIBCExec(\"/bin/mv\", \"" + kTemporary + "\", \"" + kOut + "\", null, null)", "fclose()"));
}

TEST_F(TextExport, IsReadableByItsOwnerAlone) {
    platform.addDatabase(kTextDb, textDatabase(1));
    EXPECT_EQ(run(), 0);
    struct stat status {};
    ASSERT_EQ(::stat(platform.real(kOut).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
}

TEST_F(TextExport, TakesNoMoreRoomOnTheDiskThanItsLength) {
    platform.addDatabase(kTextDb, textDatabase(20'000));
    EXPECT_EQ(run(), 0);
    struct stat status {};
    ASSERT_EQ(::stat(platform.real(kOut).c_str(), &status), 0);
    ASSERT_GT(status.st_size, 0);
    EXPECT_LE(status.st_blocks * 512, status.st_size + 64 * 1024);
}

TEST_F(TextExport, NamesSeveritiesThatFollowOneAnother) {
    FakeDatabase database = textDatabase(4);
    int severity = 1;
    for (_SYSLOG_LOG_DATA_tag& row : database.rows) {
        row.priority = static_cast<_SYSLOG_DB_PRIORITY_tag>(severity);
        severity = severity == 1 ? 9 : severity == 9 ? -1 : 1;
    }
    platform.addDatabase(kTextDb, database);
    EXPECT_EQ(run(), 0);
    const std::string text = platform.read(kOut).value_or("");
    std::vector<std::string> names;
    for (size_t at = 0; (at = text.find("01:02:03\t", at)) != std::string::npos;) {
        at += 9;
        names.push_back(text.substr(at, text.find('\t', at) - at));
    }
    EXPECT_THAT(names, ElementsAre("alert", "9", "-1", "alert"));
}

TEST_F(TextExport, ReplacesAnOlderText) {
    platform.addDatabase(kTextDb, textDatabase(0));
    platform.addFile(kOut, "old");
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(platform.read(kOut), "");
}

TEST_F(TextExport, OfNoRowsIsAnEmptyText) {
    platform.addDatabase(kTextDb, textDatabase(0));
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(platform.read(kOut), "");
    EXPECT_THAT(selects(), IsEmpty());
}

TEST_F(TextExport, OfAMissingDatabaseIsAnEmptyText) {
    platform.addFolder("/volume1/logs");
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(platform.read(kOut), "");
    EXPECT_EQ(platform.calls.count("SyslogDBExtkeyMapGet"), 0);
    EXPECT_EQ(platform.calls.count("SyslogDBSelectCount"), 0);
}

TEST_F(TextExport, NeedsAFolderOnAVolume) {
    EXPECT_EQ(processor.DB2TXT("/x.DB", "/x.TXT"), -1);
    EXPECT_EQ(processor.DB2TXT("", "/x.TXT"), -1);
    EXPECT_THAT(platform.calls.lines(), IsEmpty());
}

struct PageCase {
    std::string name;
    int rows;
    Lines selects;
};

class TextPages : public TextExport, public ::testing::WithParamInterface<PageCase> {};

TEST_P(TextPages, AreOfTenThousandRows) {
    platform.addDatabase(kTextDb, textDatabase(GetParam().rows));
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(selects(), GetParam().selects);
    std::string expected;
    for (int n = 1; n <= GetParam().rows; ++n)
        expected += kResolved + "message " + std::to_string(n) + "\r\n";
    EXPECT_TRUE(platform.read(kOut) == expected);
}

const std::string kSelectFrom = "SyslogDBSelect(\"" + kTextDb + "\", 0, 10000, ";

INSTANTIATE_TEST_SUITE_P(
    Rows, TextPages,
    ::testing::Values(
        PageCase{"One", 1, {kSelectFrom + "0, 0, 7, false)"}},
        PageCase{"APageFull", 10000, {kSelectFrom + "0, 0, 7, false)"}},
        PageCase{"OneMore", 10001, {kSelectFrom + "0, 0, 7, false)", kSelectFrom + "10000, 0, 7, false)"}},
        PageCase{"TwoPages", 20000, {kSelectFrom + "0, 0, 7, false)", kSelectFrom + "10000, 0, 7, false)"}}),
    CaseName());

TEST_F(TextExport, CountsTheRowsOnceAndChasesNoNewOnes) {
    FakeDatabase& db = platform.addDatabase(kTextDb, textDatabase(10001));
    db.count = 10000;
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(selects(), ElementsAre(selectCall(0)));
    EXPECT_EQ(platform.calls.count("SyslogDBSelectCount"), 1);
}

struct ColumnCase {
    std::string name;
    void (*change)(_SYSLOG_LOG_DATA_tag&);
    std::string line;
};

class TextLine : public TextExport, public ::testing::WithParamInterface<ColumnCase> {};

TEST_P(TextLine, HoldsTheValuesByteForByte) {
    FakeDatabase database = textDatabase(1);
    GetParam().change(database.rows.front());
    platform.addDatabase(kTextDb, database);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(platform.read(kOut), GetParam().line);
}

const std::string kEnd = "\tmessage 1\r\n";
using Row = _SYSLOG_LOG_DATA_tag;

INSTANTIATE_TEST_SUITE_P(
    Columns, TextLine,
    ::testing::Values(
        ColumnCase{"TabAndLineBreakInTheMessage", [](Row& r) { r.message = "a\tb\nc\r\n"; },
                   kResolved + "a\tb\nc\r\n\r\n"},
        ColumnCase{"EmptyMessage", [](Row& r) { r.message = ""; }, kResolved + "\r\n"},
        ColumnCase{"FormatLettersInTheMessage", [](Row& r) { r.message = "100%s %n"; },
                   kResolved + "100%s %n\r\n"},
        ColumnCase{"BytesThatAreNoText", [](Row& r) { r.message = "\xff\x1b[2J"; }, kResolved + "\xff\x1b[2J\r\n"},
        ColumnCase{"TextsThatGoOnBehindANul",
                   [](Row& r) {
                       r.time += std::string("\0x", 2);
                       r.message += std::string("\0hidden", 7);
                   },
                   kResolved + "message 1\r\n"},
        ColumnCase{"LongMessage", [](Row& r) { r.message = std::string(300000, 'm'); },
                   kResolved + std::string(300000, 'm') + "\r\n"},
        ColumnCase{"DateAndTimeAsStored",
                   [](Row& r) {
                       r.date = "day";
                       r.time = "";
                   },
                   "day\t\twarning\ttable0-1\ttable3-3\ttable1-2" + kEnd},
        ColumnCase{"SeverityByName", [](Row& r) { r.priority = SYSLOG_DB_PRIORITY_EMERG; },
                   "2024-03-03\t01:02:03\temerg\ttable0-1\ttable3-3\ttable1-2" + kEnd},
        ColumnCase{"SeverityWithoutAName", [](Row& r) { r.priority = static_cast<_SYSLOG_DB_PRIORITY_tag>(9); },
                   "2024-03-03\t01:02:03\t9\ttable0-1\ttable3-3\ttable1-2" + kEnd},
        ColumnCase{"IdThatTheTableLacks", [](Row& r) { r.hostId = "99"; },
                   "2024-03-03\t01:02:03\twarning\t\ttable3-3\ttable1-2" + kEnd},
        ColumnCase{"IdWithLeadingZeros", [](Row& r) { r.hostId = "00000000000001"; }, kResolved + "message 1\r\n"},
        ColumnCase{"IdOfManyDigits", [](Row& r) { r.hostId = "100001"; },
                   "2024-03-03\t01:02:03\twarning\t\ttable3-3\ttable1-2" + kEnd},
        ColumnCase{"IdInHexadecimalIsZero", [](Row& r) { r.hostId = "0x1"; },
                   "2024-03-03\t01:02:03\twarning\t\ttable3-3\ttable1-2" + kEnd},
        ColumnCase{"IdBeyond32Bits", [](Row& r) { r.facilityId = "4294967299"; },
                   "2024-03-03\t01:02:03\twarning\ttable0-1\t\ttable1-2" + kEnd},
        ColumnCase{"IdWithBlanksAndLetters", [](Row& r) { r.programId = "  2x"; }, kResolved + "message 1\r\n"},
        ColumnCase{"IdWithoutDigitsIsZero", [](Row& r) { r.programId = "cron"; },
                   "2024-03-03\t01:02:03\twarning\ttable0-1\ttable3-3\t" + kEnd}),
    CaseName());

TEST_F(TextExport, TheEntryOfIdZeroIsFoundByATextWithoutDigits) {
    FakeDatabase database = textDatabase(1);
    database.keys[0][0] = "nobody";
    database.rows.front().hostId = "";
    platform.addDatabase(kTextDb, database);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(platform.read(kOut), "2024-03-03\t01:02:03\twarning\tnobody\ttable3-3\ttable1-2\tmessage 1\r\n");
}

class TextWithoutKeys : public TextExport, public ::testing::WithParamInterface<int> {};

TEST_P(TextWithoutKeys, ShowsAllThreeIdsAsStored) {
    platform.addDatabase(kTextDb, textDatabase(2));
    platform.failCall("SyslogDBExtkeyMapGet", GetParam());
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(platform.read(kOut), kAsStored + "message 1\r\n" + kAsStored + "message 2\r\n");
    EXPECT_EQ(platform.calls.count("SyslogDBExtkeyMapGet"), 3);
    EXPECT_THAT(platform.messages, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Table, TextWithoutKeys, ::testing::Values(1, 2, 3));

TEST_F(TextExport, OfAVersion1DatabaseShowsItsTextsAsStored) {
    FakeDatabase database = textDatabase(1);
    database.version = 1;
    database.rows.front().hostId = "web 1";
    platform.addDatabase(kTextDb, database);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(platform.read(kOut), "2024-03-03\t01:02:03\twarning\tweb 1\t3\t2\tmessage 1\r\n");
}

TEST_F(TextExport, ThatCannotMakeItsFileSaysWhy) {
    platform.addDatabase(kTextDb, textDatabase(1));
    platform.failCall("mkstemp", 1, EMFILE);
    EXPECT_EQ(run(), -1);
    EXPECT_THAT(platform.messages, ElementsAre(std::string("0 Fail to mkstemp ") + strerror(EMFILE)));
    EXPECT_THAT(platform.filesBelow("/volume1"), ElementsAre(kTextDb));
}

TEST_F(TextExport, WithoutItsScratchFolderReportsBothFailures) {
    platform.addDatabase(kTextDb, textDatabase(1));
    platform.failCall("VESKFSMkdirP", 1, EROFS);
    EXPECT_EQ(run(), -1);
    EXPECT_THAT(platform.messages, ElementsAre("0 Fail to create folder: /volume1/@tmp/",
                                               std::string("0 Fail to mkstemp ") + strerror(ENOENT)));
}

TEST_F(TextExport, ThatGetsNoStreamSaysWhyAndLeavesAnEmptyFile) {
    platform.addDatabase(kTextDb, textDatabase(1));
    platform.failCall("fdopen", 1, ENOMEM);
    EXPECT_EQ(run(), -1);
    EXPECT_THAT(platform.messages, ElementsAre(std::string("0 Fail to fdopen ") + strerror(ENOMEM)));
    EXPECT_EQ(platform.read(kTemporary), "");
    EXPECT_FALSE(platform.exists(kOut));
    EXPECT_EQ(platform.calls.count("VLIBCExec"), 0);
}

TEST_F(TextExport, ThatCannotCountFailsInSilence) {
    platform.addDatabase(kTextDb, textDatabase(1));
    platform.failCall("SyslogDBSelectCount");
    EXPECT_EQ(run(), -1);
    EXPECT_THAT(platform.messages, IsEmpty());
    EXPECT_EQ(platform.read(kTemporary), "");
    EXPECT_FALSE(platform.exists(kOut));
}

TEST_F(TextExport, ThatCannotReadAPageKeepsWhatItHasWritten) {
    platform.addDatabase(kTextDb, textDatabase(10001));
    platform.failCall("SyslogDBSelect", 2);
    EXPECT_EQ(run(), -1);
    EXPECT_THAT(platform.messages, ElementsAre("0 Fail to select database"));
    const std::string written = platform.read(kTemporary).value_or("");
    EXPECT_EQ(written.substr(written.rfind('\t')), "\tmessage 10000\r\n");
    EXPECT_FALSE(platform.exists(kOut));
}

TEST_F(TextExport, ThatCannotBeMovedLeavesTheCompleteText) {
    platform.addDatabase(kTextDb, textDatabase(1));
    platform.failCall("VLIBCExec", 1, EXDEV);
    EXPECT_EQ(run(), -1);
    EXPECT_THAT(platform.messages,
                ElementsAre("0 Fail to rename txt file: " + kTemporary + " -> " + kOut + " " + strerror(EXDEV)));
    EXPECT_EQ(platform.read(kTemporary), kResolved + "message 1\r\n");
    EXPECT_FALSE(platform.exists(kOut));
}

TEST_F(TextExport, OntoAFullVolumeFailsInsteadOfLosingRows) {
    platform.addDatabase(kTextDb, textDatabase(3));
    platform.scratchIsFull = true;
    EXPECT_EQ(run(), -1);
    EXPECT_FALSE(platform.exists(kOut));
}

TEST_F(TextExport, CutsTheNameOfItsFileAt4094Characters) {
    const std::string volume = "/" + std::string(4070, 'v');
    // "/@tmp/" and the file's name make 4103 characters; the cut one no longer ends in the six places.
    EXPECT_EQ(processor.DB2TXT(volume + "/x.DB", kOut), -1);
    const std::string wanted = (volume + "/@tmp/syslogtranstmp-XXXXXX").substr(0, 4094);
    EXPECT_THAT(platform.calls.linesOf({"mkstemp"}), ElementsAre("mkstemp(\"" + wanted + "\")"));
    EXPECT_EQ(platform.messages.back(), std::string("0 Fail to mkstemp ") + strerror(EINVAL));
}

}  // namespace

}  // namespace ombrel::test
