// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Moving files to another file system: each test has two of its own in a private mount namespace.
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <iostream>
#include <string>

#include "linux/common/error_record.h"
#include "platform/veskfileop.h"
#include "tests/linux/child_process.h"
#include "tests/linux/test_database.h"

namespace ombrel {
namespace {

using test::makeDatabase;
using test::messagesOf;
using test::readBytes;
using test::writeBytes;

/// Says what did not hold; the child's exit code is the number of such lines.
class Checks {
public:
    void that(bool holds, const std::string& what) {
        if (holds) return;
        std::cerr << "does not hold: " << what << " (errno " << errno << ")\n";
        ++failures_;
    }
    [[nodiscard]] int failures() const { return failures_; }

private:
    int failures_ = 0;
};

class MoveAcross : public ::testing::Test {
protected:
    // `body` runs with two fresh file systems of which the second has room for `toSize`.
    void run(const char* toSize, const std::function<void(Checks&)>& body) {
        std::filesystem::create_directory(folder.at("a"));
        std::filesystem::create_directory(folder.at("b"));
        const int result = test::runInChild([&] {
            if (!test::enterPrivateMounts()) return test::kSkip;
            if (::mount("none", folder.at("a").c_str(), "tmpfs", 0, "size=16m") != 0) return test::kSkip;
            if (::mount("none", folder.at("b").c_str(), "tmpfs", 0, toSize) != 0) return test::kSkip;
            Checks checks;
            body(checks);
            return checks.failures();
        });
        if (result == test::kSkip) GTEST_SKIP() << "no mount namespace here";
        EXPECT_EQ(result, 0);
    }
    [[nodiscard]] int move() const { return VESKFileCopy(from.c_str(), to.c_str(), nullptr); }
    static bool exists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }
    static std::vector<std::string> manyRows() { return std::vector<std::string>(5000, std::string(100, 'x')); }

    test::TemporaryFolder folder;
    std::string from = folder.at("a/VESKSYSLOGDB__ARCH.DB");
    std::string to = folder.at("b/2024-03-03_2024-03-09.DB");
};

TEST_F(MoveAcross, CarriesADatabaseWithItsOwnerModeAndTime) {
    run("size=16m", [&](Checks& checks) {
        makeDatabase(from, manyRows());
        checks.that(::chmod(from.c_str(), 0640) == 0, "mode set");
        const bool owned = ::geteuid() == 0 && ::chown(from.c_str(), 1234, 5678) == 0;
        const timespec times[2] = {{1'500'000'000, 0}, {1'600'000'000, 123}};
        checks.that(::utimensat(AT_FDCWD, from.c_str(), times, 0) == 0, "times set");
        const std::string before = readBytes(from);
        checks.that(move() == 0, "moved");
        checks.that(readBytes(to) == before, "same bytes");
        checks.that(!exists(from) && !exists(to + ".part"), "nothing left");
        struct stat info {};
        checks.that(::stat(to.c_str(), &info) == 0, "there");
        checks.that((info.st_mode & 07777) == 0640, "mode");
        checks.that(!owned || (info.st_uid == 1234 && info.st_gid == 5678), "owner");
        checks.that(info.st_mtim.tv_sec == 1'600'000'000 && info.st_mtim.tv_nsec == 123, "time");
        checks.that(messagesOf(to) == manyRows(), "rows");
    });
}

TEST_F(MoveAcross, RollsBackWhatADeadWriterLeftHalfDone) {
    run("size=16m", [&](Checks& checks) {
        makeDatabase(from, {"first"});
        checks.that(test::leaveHotJournal(from), "journal left");
        checks.that(move() == 0, "moved");
        checks.that(messagesOf(to) == std::vector<std::string>{"first"}, "rows");
        checks.that(test::integrityOf(to) == "ok", "sound");
    });
}

TEST_F(MoveAcross, CarriesAPlainFile) {
    run("size=16m", [&](Checks& checks) {
        writeBytes(from, std::string(1'000'000, 'x'));
        checks.that(move() == 0, "moved");
        checks.that(readBytes(to) == std::string(1'000'000, 'x'), "same bytes");
        checks.that(!exists(from) && !exists(to + ".part"), "nothing left");
    });
}

TEST_F(MoveAcross, FailsUntouchedWithoutRoom) {
    for (const bool isDatabase : {true, false}) {
        if (std::filesystem::exists(folder.at("a"))) std::filesystem::remove(folder.at("a"));
        if (std::filesystem::exists(folder.at("b"))) std::filesystem::remove(folder.at("b"));
        run("size=64k", [&](Checks& checks) {
            if (isDatabase) {
                makeDatabase(from, manyRows());
            } else {
                writeBytes(from, std::string(1'000'000, 'x'));
            }
            const std::string before = readBytes(from);
            checks.that(move() != 0, "refused");
            checks.that(VLIBCErrGet() == fromErrno(ENOSPC), "the reason");
            checks.that(readBytes(from) == before, "source untouched");
            checks.that(!exists(to) && !exists(to + ".part"), "nothing begun is left");
        });
    }
}

TEST_F(MoveAcross, TakesOverAnUnfinishedCopyOfADeadProcess) {
    run("size=16m", [&](Checks& checks) {
        makeDatabase(from, {"row"});
        writeBytes(to + ".part", std::string(100'000, 'z'));
        checks.that(move() == 0, "moved");
        checks.that(messagesOf(to) == std::vector<std::string>{"row"}, "rows");
        checks.that(!exists(to + ".part"), "nothing left");
    });
}

TEST_F(MoveAcross, FailsUntouchedWhenTheSourceCannotBeTakenAway) {
    run("size=16m", [&](Checks& checks) {
        writeBytes(from, "a text");
        const std::string place = folder.at("a");
        checks.that(::mount(nullptr, place.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0, "read-only");
        checks.that(move() != 0, "refused");
        checks.that(VLIBCErrGet() == fromErrno(EROFS), "the reason");
        checks.that(readBytes(from) == "a text", "source untouched");
        checks.that(!exists(to) && !exists(to + ".part"), "no copy");
    });
}

TEST_F(MoveAcross, RefusesATakenName) {
    run("size=16m", [&](Checks& checks) {
        makeDatabase(from, {"row"});
        writeBytes(to, "taken");
        checks.that(move() != 0, "refused");
        checks.that(readBytes(to) == "taken", "the other file untouched");
        checks.that(messagesOf(from) == std::vector<std::string>{"row"}, "source untouched");
    });
}

}  // namespace
}  // namespace ombrel
