// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel storage`: shares, room, and what is said of a move.
#include "tests/unit/archiver_test.h"
#include "tests/unit/command_line_run.h"

namespace ombrel::test::cmd_storage {

namespace {

using ::testing::HasSubstr;

const std::string kOldPlace = "/volume1/old.DB";
const std::string kNewPlace = "/volume2/new.DB";

class StorageCommand : public PlatformTest {
protected:
    StorageCommand() {
        platform.addFile(kServerConf, sampleText());
        platform.addShare("logs");
        platform.addShare("spare");
        platform.addShare("image", ShareKind::kImage);
        platform.addShare("far", ShareKind::kRemote);
        platform.addFile(kOldPlace, "rows");
        platform.addFolder("/volume2");
        platform.calls.clear();
    }
    int run(const Lines& words) { return command.runBelow("storage", words); }
    void expectComplaint(const Lines& words, int exitCode, const std::string& complaint) {
        EXPECT_EQ(run(words), exitCode);
        EXPECT_EQ(command.out, "");
        EXPECT_EQ(command.err, "ombrel: " + complaint + "\n");
    }
    [[nodiscard]] std::string shareFolder(const std::string& name) const {
        for (const auto& share : platform.shares) {
            if (share.name == name) return share.path;
        }
        return {};
    }

    CommandLineRun command;
};

TEST_F(StorageCommand, ListsTheSharesThatCanHoldLogs) {
    platform.space[shareFolder("logs")] = {4096, 1000};
    platform.space[shareFolder("spare")] = {4096, 0};
    EXPECT_EQ(run({"shares"}), 0);
    EXPECT_EQ(command.out, "logs\tin use\tlocal\t4.1 MB\t" + shareFolder("logs") + "\nspare\t-\tlocal\t0.0 MB\t" +
                               shareFolder("spare") + "\n");
    EXPECT_EQ(run({"shares", "--json"}), 0);
    EXPECT_EQ(command.out, R"({"shares":[{"name":"logs","path":")" + shareFolder("logs") +
                               R"(","file_system":"local","free_bytes":4096000,"in_use":true},)" +
                               R"({"name":"spare","path":")" + shareFolder("spare") +
                               R"(","file_system":"local","free_bytes":0,"in_use":false}]})" + "\n");
}

TEST_F(StorageCommand, SaysThatSharesCannotBeListed) {
    for (const char* call : {"VESKShareEnum", "VLIBCSzListAlloc"}) {
        platform.failCall(call);
        expectComplaint({"shares"}, 1, "the shares cannot be listed");
    }
    platform.removeFile(kServerConf);
    EXPECT_EQ(run({"shares"}), 78);
}

TEST_F(StorageCommand, TellsWhyAShareCannotHoldLogs) {
    const std::string advice = "\tombrel storage shares lists those that can hold logs\n";
    EXPECT_EQ(run({"check", "logs"}), 0);
    EXPECT_EQ(command.out, "ok\tlogs\tit can hold the log database\t-\n");
    EXPECT_EQ(run({"check", "far"}), 1);
    EXPECT_EQ(command.out, "wrong\tfar\t" + shareFolder("far") + ": it lies on a network file system" + advice);
    EXPECT_EQ(run({"check", "image"}), 1);
    EXPECT_EQ(command.out, "wrong\timage\t" + shareFolder("image") + ": it lies on a disk image" + advice);
    EXPECT_EQ(run({"check", "no\x1bne"}), 1);
    EXPECT_EQ(command.out, "wrong\tno\\x1bne\tthere is no such share" + advice);
    EXPECT_EQ(run({"check", "none", "--json"}), 1);
    EXPECT_EQ(
        command.out,
        R"({"ok":false,"findings":[{"name":"none","ok":false,"state":"wrong","what":"there is no such share",)"
        R"("advice":"ombrel storage shares lists those that can hold logs"}]})"
        "\n");
}

TEST_F(StorageCommand, TellsWhetherThereIsRoom) {
    platform.space["/volume2"] = {1 << 20, 500};
    EXPECT_EQ(run({"space", "/volume2", "500M"}), 0);
    EXPECT_EQ(command.out, "enough: 524.3 MB free, 524.3 MB asked for\n");
    EXPECT_EQ(run({"space", "/volume2", "501MiB", "--json"}), 1);
    EXPECT_EQ(command.out, R"({"path":"/volume2","enough":false,"needed_bytes":525336576,"free_bytes":524288000})"
                           "\n");
    expectComplaint(
        {"space", "/volume2", "5X"}, 64,
        "BYTES \"5X\": expected a size such as 4096, 500M or 10GiB (units K, M, G, T: powers of 1024)");
    expectComplaint({"space", "/none", "1"}, 66, "/none: No such file or directory");
}

TEST_F(StorageCommand, MovesAFile) {
    EXPECT_EQ(run({"move", kOldPlace, kNewPlace}), 0);
    EXPECT_EQ(command.out + command.err, "");
    EXPECT_EQ(platform.read(kNewPlace), "rows");
    EXPECT_FALSE(platform.exists(kOldPlace));
    EXPECT_EQ(fakeMachine().turnsTaken, 1);
}

TEST_F(StorageCommand, NamesWhatStoodThereBefore) {
    platform.addFile(kNewPlace, "older");
    platform.addFile(kNewPlace + "_0", "oldest");
    EXPECT_EQ(run({"move", kOldPlace, kNewPlace}), 0);
    EXPECT_EQ(command.out, "what stood at /volume2/new.DB is /volume2/new.DB_1 now\n");
    EXPECT_EQ(platform.read(kNewPlace + "_1"), "older");
    EXPECT_EQ(run({"move", kNewPlace, kOldPlace, "--json"}), 0);
    EXPECT_EQ(command.out, R"({"from":"/volume2/new.DB","to":"/volume1/old.DB","backup":null})"
                           "\n");
    platform.addFile(kNewPlace, "again");
    EXPECT_EQ(run({"move", kOldPlace, kNewPlace, "--json"}), 0);
    EXPECT_EQ(command.out, R"({"from":"/volume1/old.DB","to":"/volume2/new.DB","backup":"/volume2/new.DB_2"})"
                           "\n");
}

TEST_F(StorageCommand, TellsEachReasonOfAFailedMove) {
    platform.calls.onFailure = [this] { platform.error.code = 0x1000 + EIO; };
    platform.failCall("VESKFileCopy");
    expectComplaint({"move", kOldPlace, kNewPlace}, 1,
                    "/volume1/old.DB could not be moved to /volume2/new.DB (Input/output error)");
    platform.addFile(kNewPlace, "older");
    platform.failCall("VESKFileCopy", 2);
    expectComplaint({"move", kOldPlace, kNewPlace}, 1,
                    "/volume1/old.DB could not be moved to /volume2/new.DB (Input/output error); what stood at "
                    "/volume2/new.DB is /volume2/new.DB_0 now");
    platform.space["/volume2"] = {1, 3};
    expectComplaint({"move", kOldPlace, kNewPlace}, 1,
                    "/volume1/old.DB was not moved: there is no room for 0.0 MB in /volume2; make room or choose "
                    "another place");
    expectComplaint({"move", kOldPlace, "/none/x.DB"}, 1,
                    "/volume1/old.DB was not moved: the folder /none is not there; make it first");
}

TEST_F(StorageCommand, RefusesWhatIsNoMove) {
    expectComplaint({"move", "/none.DB", kNewPlace}, 66, "/none.DB: No such file or directory");
    expectComplaint({"move", "/volume2", kNewPlace}, 66, "/volume2: Is a directory");
    expectComplaint({"move", kOldPlace, kOldPlace}, 64, "FROM and TO are the same: /volume1/old.DB");
    expectComplaint({"move", kOldPlace, ""}, 64, "FROM and TO are paths of files");
    expectComplaint({"move", kOldPlace, "new.DB"}, 64,
                    "TO \"new.DB\": expected the path of a file, with its folder");
    expectComplaint({"move", kOldPlace, "/volume2/"}, 64,
                    "TO \"/volume2/\": expected the path of a file, with its folder");
    EXPECT_EQ(fakeMachine().turnsTaken, 0);
    fakeMachine().turnResult = 75;
    expectComplaint({"move", kOldPlace, kNewPlace}, 75, "no turn");
    EXPECT_TRUE(platform.exists(kOldPlace));
}

TEST_F(StorageCommand, MovesAWorkingDatabaseOnlyByForce) {
    platform.addFile(kSharedDb, "rows");
    expectComplaint({"move", kSharedDb, kNewPlace}, 64,
                    kSharedDb +
                        " is a working database, to which the log writer goes on writing; ombrel archive run "
                        "is the way to move it, --force moves it all the same");
    EXPECT_EQ(run({"move", kSharedDb, kNewPlace, "--force"}), 0);
    EXPECT_EQ(platform.read(kNewPlace), "rows");
}

}  // namespace

}  // namespace ombrel::test::cmd_storage
