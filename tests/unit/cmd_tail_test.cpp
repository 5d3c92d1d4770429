// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel tail`: the last rows, and those that come while databases are archived.
#include <filesystem>

#include "tests/receiver/in_zone.h"
#include "tests/unit/archiver_test.h"
#include "tests/unit/command_line_run.h"
#include "tests/unit/log_rows.h"

namespace ombrel::test::cmd_tail {

namespace {

constexpr const char* kArchive = "/volume1/logs/1970-01-02_1970-01-02.DB";

class TailCommand : public PlatformTest {
protected:
    TailCommand() {
        platform.addFolder(kDest);
        platform.addFolder("/tmp");
        settings({{"arch_by_device", "0"}});
    }
    void settings(const Settings& changed) { platform.addFile(kServerConf, sampleText(changed)); }
    void rename(const std::string& from, const std::string& to) {
        std::filesystem::rename(platform.real(from), platform.real(to));
    }
    /// What happens at each wait, one after the other; then the command is asked to stop.
    void meanwhile(std::vector<std::function<void(FollowWake&)>> steps) {
        fakeMachine().whileWaiting = [steps, next = std::size_t{0}]() mutable {
            FollowWake wake;
            if (next == steps.size()) {
                wake.stop = true;
            } else {
                steps[next++](wake);
            }
            return wake;
        };
    }
    /// The messages of the rows that were printed.
    Lines messages() {
        Lines found;
        std::size_t from = 0;
        for (std::size_t end = 0; (end = command.out.find('\n', from)) != std::string::npos; from = end + 1)
            found.push_back(
                command.out.substr(command.out.rfind('\t', end) + 1, end - command.out.rfind('\t', end) - 1));
        return found;
    }

    InZone utc{"UTC"};
    CommandLineRun command;
};

TEST_F(TailCommand, ShowsTheLastRowsOfAllDatabasesByTime) {
    FakeDatabase& shared = platform.addDatabase(kSharedDb, emptyLogs());
    FakeDatabase& local = platform.addDatabase(kLocalDb, emptyLogs());
    for (int i = 0; i < 5; ++i) {
        addRow(shared, 10 * i, "shared " + std::to_string(i));
        addRow(local, 10 * i + 5, "local\x1b[2J " + std::to_string(i), {2, 2, 3});
    }
    EXPECT_EQ(command.run({"tail", "-n", "3"}), 0);
    EXPECT_EQ(command.out,
              "1970-01-02\t00:00:35\terr\tbeta\tauth\tcron\tlocal\\x1b[2J 3\n"
              "1970-01-02\t00:00:40\tinfo\talpha\tauth\tsshd\tshared 4\n"
              "1970-01-02\t00:00:45\terr\tbeta\tauth\tcron\tlocal\\x1b[2J 4\n");
    EXPECT_EQ(command.err, "");
    EXPECT_EQ(command.run({"tail"}), 0);
    EXPECT_EQ(messages().size(), 10U);
    EXPECT_EQ(command.run({"tail", "SHARED 1", "--format", "csv"}), 0);
    EXPECT_EQ(command.out,
              "time,received,severity,host,facility,program,process_id,message_id,sender,message\r\n"
              "1970-01-02T00:00:10+00:00,1970-01-02T00:00:10+00:00,info,alpha,auth,sshd,,,192.0.2.7,shared 1\r\n");
    EXPECT_EQ(command.run({"tail", "--json", "--host", "beta", "-n", "1"}), 0);
    EXPECT_EQ(command.out,
              R"({"time":"1970-01-02T00:00:45+00:00","received":"1970-01-02T00:00:45+00:00","severity":"err",)"
              R"("host":"beta","facility":"auth","program":"cron","process_id":"","message_id":"",)"
              R"("sender":"192.0.2.7","message":"local\u001b[2J 4"})"
              "\n");
}

TEST_F(TailCommand, RefusesWrongWords) {
    EXPECT_EQ(command.run({"tail", "--severity", "bad"}), 64);
    EXPECT_EQ(command.run({"tail", "--json", "--format", "csv"}), 64);
    EXPECT_EQ(command.err, "ombrel: --json and --format csv exclude each other\n");
    EXPECT_EQ(command.run({"tail", "-n", "-1"}), 64);
    EXPECT_EQ(command.out, "");
    platform.removeFile(kServerConf);
    EXPECT_EQ(command.run({"tail"}), 78);
    settings({{"arch_dest", "/volume1/none"}});
    EXPECT_EQ(command.run({"tail"}), 66);
    EXPECT_EQ(command.err, "ombrel: /volume1/none: No such file or directory\n");
    fakeMachine().canWatch = false;
    EXPECT_EQ(command.run({"tail", "-f"}), 1);
    EXPECT_EQ(command.err, "ombrel: new rows cannot be waited for: Too many open files\n");
}

TEST_F(TailCommand, ShowsWhatCanBeReadAndSaysWhatCannot) {
    FakeDatabase& shared = platform.addDatabase(kSharedDb, emptyLogs());
    addRow(shared, 1, "one");
    platform.addDatabase(kLocalDb, emptyLogs());
    addRow(*platform.database(kLocalDb), 2, "two");
    platform.database(kLocalDb)->opens = false;
    EXPECT_EQ(command.run({"tail"}), 66);
    EXPECT_EQ(messages(), Lines({"one"}));
    EXPECT_TRUE(command.err.starts_with("ombrel: " + kLocalDb + ": ")) << command.err;
}

TEST_F(TailCommand, FollowsRowsThatCome) {
    FakeDatabase& shared = platform.addDatabase(kSharedDb, emptyLogs());
    addRow(shared, 1, "before");
    meanwhile({[&](FollowWake& wake) {
                   addRow(shared, 2, "first");
                   addRow(shared, 3, "first, of beta", {2});
                   wake.grown.insert(kDest);
               },
               [&](FollowWake& wake) {
                   addRow(shared, 4, "second");
                   wake.grown.insert(kDest);
               },
               [&](FollowWake& wake) { wake.grown.insert(kDest); }});
    EXPECT_EQ(command.run({"tail", "-f", "-n", "0", "--host", "alpha"}), 0);
    EXPECT_EQ(messages(), Lines({"first", "second"}));
    EXPECT_EQ(command.err, "");
    EXPECT_EQ(fakeMachine().watchedFolders, std::set<std::string>({kDest}));
}

TEST_F(TailCommand, FollowsADatabaseIntoItsArchiveAndBeginsTheNextOne) {
    addRow(platform.addDatabase(kSharedDb, emptyLogs()), 1, "before");
    meanwhile({[&](FollowWake& wake) {
                   addRow(*platform.database(kSharedDb), 2, "right before it was moved");
                   rename(kSharedDb, kArchive);
                   addRow(platform.addDatabase(kSharedDb, emptyLogs()), 3, "new 1");
                   addRow(*platform.database(kSharedDb), 4, "new 2");
                   wake.grown.insert(kDest);
                   wake.entries.insert(kDest);
                   wake.renamed.emplace_back(kSharedDb, kArchive);
               },
               [&](FollowWake& wake) {
                   addRow(*platform.database(kSharedDb), 5, "new 3");
                   wake.grown.insert(kDest);
               }});
    EXPECT_EQ(command.run({"tail", "-f"}), 0);
    EXPECT_EQ(messages(), Lines({"before", "right before it was moved", "new 1", "new 2", "new 3"}));
    EXPECT_EQ(command.err, "");
}

TEST_F(TailCommand, ReadsTheRestOfAnArchiveThatWasPackedAlready) {
    addRow(platform.addDatabase(kSharedDb, emptyLogs()), 1, "before");
    meanwhile({[&](FollowWake& wake) {
        addRow(*platform.database(kSharedDb), 2, "right before it was moved");
        rename(kSharedDb, kArchive);
        platform.removeFile(kArchive);
        wake.entries.insert(kDest);
        wake.renamed.emplace_back(kSharedDb, kArchive);
    }});
    EXPECT_EQ(command.run({"tail", "-f"}), 0);
    EXPECT_EQ(messages(), Lines({"before", "right before it was moved"}));
    EXPECT_EQ(command.err, "");
    EXPECT_EQ(platform.filesBelow("/tmp"), Lines());
}

TEST_F(TailCommand, ReadsDatabasesThatCameAndWereArchivedMeanwhile) {
    addRow(platform.addDatabase(kSharedDb, emptyLogs()), 1, "1");
    const std::string second = "/volume1/logs/1970-01-02_1970-01-02_1.DB";
    const std::string third = "/volume1/logs/1970-01-02_1970-01-02_2.DB";
    meanwhile({[&](FollowWake& wake) {
                   for (const std::string& to : {std::string(kArchive), second, third}) {
                       addRow(*platform.database(kSharedDb), 2, "last of " + to.substr(35));
                       rename(kSharedDb, to);
                       addRow(platform.addDatabase(kSharedDb, emptyLogs()), 3, "first behind " + to.substr(35));
                       wake.renamed.emplace_back(kSharedDb, to);
                   }
                   platform.removeFile(third);
                   wake.entries.insert(kDest);
               },
               [&](FollowWake& wake) { wake.grown.insert(kDest); }});
    EXPECT_EQ(command.run({"tail", "-f"}), 0);
    EXPECT_EQ(messages(), Lines({"1", "last of .DB", "first behind .DB", "last of _1.DB", "first behind _2.DB"}));
    EXPECT_EQ(command.err, "ombrel: " + third +
                               ": archived and packed before its rows could be read; ombrel search shows them\n");
}

TEST_F(TailCommand, ReadsAnArchiveOnceWhoseNameAnotherOneHadBefore) {
    addRow(platform.addDatabase(kSharedDb, emptyLogs()), 1, "1");
    const std::string second = "/volume1/logs/1970-01-02_1970-01-02_1.DB";
    meanwhile({[&](FollowWake& wake) {
        rename(kSharedDb, kArchive);
        wake.renamed.emplace_back(kSharedDb, kArchive);
        for (const char* const message : {"packed", "kept"}) {
            addRow(platform.addDatabase(kSharedDb, emptyLogs()), 2, message);
            platform.removeFile(second);
            rename(kSharedDb, second);
            wake.renamed.emplace_back(kSharedDb, second);
        }
        wake.entries.insert(kDest);
    }});
    EXPECT_EQ(command.run({"tail", "-f"}), 0);
    EXPECT_EQ(messages(), Lines({"1", "kept"}));
    EXPECT_EQ(command.err, "ombrel: " + second +
                               ": archived and packed before its rows could be read; ombrel search shows them\n");
}

TEST_F(TailCommand, FindsNewHostsAndFollowsTheSettings) {
    settings({{"arch_by_device", "1"}});
    meanwhile({[&](FollowWake& wake) {
                   addRow(platform.addDatabase(hostDb("router"), emptyLogs()), 1, "of the router");
                   wake.entries.insert(kDest);
               },
               [&](FollowWake& wake) {
                   addRow(*platform.database(hostDb("router")), 2, "of the router again");
                   wake.grown.insert(std::string(kDest) + "/router");
               },
               [&](FollowWake& wake) {
                   addRow(platform.addDatabase("/volume1/other/VESKSYSLOGDB__ARCH.DB", emptyLogs()), 3,
                          "elsewhere");
                   settings({{"arch_by_device", "0"}, {"arch_dest", "/volume1/other"}});
                   wake.settings = true;
               }});
    EXPECT_EQ(command.run({"tail", "-f"}), 0);
    EXPECT_EQ(messages(), Lines({"of the router", "of the router again", "elsewhere"}));
    EXPECT_EQ(command.err, "");
    EXPECT_EQ(fakeMachine().watchedFolders,
              std::set<std::string>({kDest, std::string(kDest) + "/router", "/volume1/other"}));
}

TEST_F(TailCommand, SaysOnceWhatItCannotFollow) {
    addRow(platform.addDatabase(kSharedDb, emptyLogs()), 1, "before");
    const auto locked = [&](FollowWake& wake) {
        platform.database(kSharedDb)->opens = false;
        wake.grown.insert(kDest);
    };
    meanwhile({locked, locked, [&](FollowWake& wake) {
                   platform.database(kSharedDb)->opens = true;
                   addRow(*platform.database(kSharedDb), 2, "behind it");
                   wake.missed = true;
               }});
    EXPECT_EQ(command.run({"tail", "-f"}), 0);
    EXPECT_EQ(messages(), Lines({"before", "behind it"}));
    const std::size_t end = command.err.find('\n');
    EXPECT_TRUE(command.err.starts_with("ombrel: " + kSharedDb + ": ")) << command.err;
    EXPECT_EQ(command.err.substr(end + 1),
              "ombrel: more happened at once than can be followed; rows may be missing\n");
}

}  // namespace

}  // namespace ombrel::test::cmd_tail
