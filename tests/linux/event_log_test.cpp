// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The event file and the entries for the journal.
#include "linux/vesksyslog/event_log.h"

#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "linux/common/fd.h"
#include "platform/vesksyslog.h"
#include "tests/linux/child_process.h"

namespace ombrel {
namespace {

using test::readBytes;
using ::testing::HasSubstr;

constexpr Event kEvent = {"archive_finished", "0123456789abcdef0123456789abcdef", "Archive finished", false};

std::vector<std::string> linesOf(const std::string& path) {
    std::istringstream text(readBytes(path));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

class EventFile : public ::testing::Test {
protected:
    test::TemporaryFolder folder;
    std::string path = folder.at("log/events.jsonl");
};

TEST_F(EventFile, IsMadeWithItsFolderButNoFolderAbove) {
    EXPECT_TRUE(appendEventLine(path, kEvent, "/srv/logs/2024-03-03_2024-03-09.DB"));
    EXPECT_EQ(linesOf(path).size(), 1U);
    EXPECT_FALSE(appendEventLine(folder.at("not/installed/events.jsonl"), kEvent, "text"));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(std::filesystem::exists(folder.at("not")));
}

TEST_F(EventFile, HoldsOneJsonLineForEachEvent) {
    ASSERT_TRUE(appendEventLine(path, kEvent, "/srv/a \"quoted\"\nname\xff"));
    ASSERT_TRUE(appendEventLine(path, kEvent, ""));
    const auto lines = linesOf(path);
    ASSERT_EQ(lines.size(), 2U);
    const std::regex expected(R"(\{"time":"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d\d:\d\d",)"
                              R"("event":"archive_finished","text":"/srv/a \\"quoted\\"\\u000aname\\ufffd"\})");
    EXPECT_TRUE(std::regex_match(lines[0], expected)) << lines[0];
    EXPECT_THAT(lines[1], HasSubstr(R"("text":""})"));
}

TEST_F(EventFile, KeepsTheLinesOfSeveralProcessesApart) {
    constexpr int kProcesses = 4;
    constexpr int kEvents = 200;
    ASSERT_TRUE(appendEventLine(path, kEvent, "first"));
    std::vector<pid_t> children;
    for (int child = 0; child < kProcesses; ++child) {
        children.push_back(test::startChild([&] {
            for (int i = 0; i < kEvents; ++i) {
                if (!appendEventLine(path, kEvent, std::string(500, 'x'))) return 1;
            }
            return 0;
        }));
    }
    for (const pid_t child : children)
        EXPECT_EQ(test::awaitChild(child), 0);
    const auto lines = linesOf(path);
    ASSERT_EQ(lines.size(), 1U + kProcesses * kEvents);
    for (size_t i = 1; i < lines.size(); ++i)
        EXPECT_EQ(lines[i].size(), lines[1].size());
}

TEST_F(EventFile, IsTurnedAwayWhenItIsFull) {
    ASSERT_TRUE(appendEventLine(path, kEvent, "before"));
    std::filesystem::resize_file(path, kEventFileLimit);
    ASSERT_TRUE(appendEventLine(path, kEvent, "after"));
    EXPECT_EQ(linesOf(path).size(), 1U);
    EXPECT_THAT(readBytes(path), HasSubstr("after"));
    EXPECT_EQ(std::filesystem::file_size(path + ".1"), static_cast<size_t>(kEventFileLimit));
}

TEST_F(EventFile, GoesOnInANewLineBehindOneThatWasCutOff) {
    ASSERT_TRUE(appendEventLine(path, kEvent, "before"));
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - 5);
    ASSERT_TRUE(appendEventLine(path, kEvent, "after"));
    ASSERT_TRUE(appendEventLine(path, kEvent, "last"));
    const auto lines = linesOf(path);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_THAT(lines[1], ::testing::StartsWith("{\"time\""));
    EXPECT_THAT(lines[1], HasSubstr("after"));
}

TEST_F(EventFile, IsWrittenThoughAHangingProcessHoldsItsLock) {
    ASSERT_TRUE(appendEventLine(path, kEvent, "before"));
    const Fd held(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(held.get(), LOCK_EX), 0);
    ASSERT_TRUE(appendEventLine(path, kEvent, "after"));
    EXPECT_EQ(linesOf(path).size(), 2U);
    std::filesystem::resize_file(path, kEventFileLimit);  // a full file is not turned away then, but grows
    ASSERT_TRUE(appendEventLine(path, kEvent, "last"));
    EXPECT_GT(std::filesystem::file_size(path), static_cast<size_t>(kEventFileLimit));
}

TEST_F(EventFile, IsNotWrittenThroughALink) {
    std::filesystem::create_directory(folder.at("log"));
    test::writeBytes(folder.at("other"), "");
    std::filesystem::create_symlink(folder.at("other"), path);
    EXPECT_FALSE(appendEventLine(path, kEvent, "text"));
    EXPECT_EQ(readBytes(folder.at("other")), "");
}

TEST_F(EventFile, OnAFullDiskFails) {
    const int result = test::runInChild([&] {
        if (!test::enterPrivateMounts()) return test::kSkip;
        if (::mount("none", folder.path().c_str(), "tmpfs", 0, "size=8k") != 0) return test::kSkip;
        test::writeBytes(folder.at("filling"), std::string(8192, 'x'));
        return appendEventLine(folder.at("events.jsonl"), kEvent, "text") || errno != ENOSPC ? 1 : 0;
    });
    if (result == test::kSkip) GTEST_SKIP() << "no mount namespace here";
    EXPECT_EQ(result, 0);
}

class JournalSocket : public EventFile {
protected:
    void listen() {
        socket_.reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        ASSERT_LT(name.size(), sizeof address.sun_path);
        std::memcpy(address.sun_path, name.c_str(), name.size() + 1);
        ASSERT_EQ(::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    std::string received() {
        std::string entry(65'536, '\0');
        const ssize_t length = ::recv(socket_.get(), entry.data(), entry.size(), 0);
        entry.resize(length < 0 ? 0 : static_cast<size_t>(length));
        return entry;
    }

    std::string name = folder.at("socket");
    Fd socket_;
};

TEST_F(JournalSocket, ReceivesFieldsWithTheirLengths) {
    listen();
    ASSERT_TRUE(sendToJournal(name, kEvent, "a\nPRIORITY=0"));
    const std::string entry = received();
    const std::string message = "Archive finished: a\nPRIORITY=0";
    const std::string length(1, static_cast<char>(message.size()));
    EXPECT_THAT(entry, HasSubstr("MESSAGE\n" + length + std::string(7, '\0') + message + "\n"));
    EXPECT_THAT(entry, HasSubstr(std::string("MESSAGE_ID\n\x20\0\0\0\0\0\0\0", 19) + kEvent.messageId + "\n"));
    EXPECT_THAT(entry, HasSubstr(std::string("PRIORITY\n\x01\0\0\0\0\0\0\0", 17) + "6\n"));
    EXPECT_THAT(entry, HasSubstr("SYSLOG_IDENTIFIER\n"));
}

TEST_F(JournalSocket, ThatNobodyListensAtIsNoHarm) {
    EXPECT_FALSE(sendToJournal(name, kEvent, "text"));
    EXPECT_EQ(errno, ENOENT);
    listen();
    socket_.reset();
    EXPECT_FALSE(sendToJournal(name, kEvent, "text"));
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_FALSE(sendToJournal(std::string(200, 'x'), kEvent, "text"));
}

TEST(EventLog, GoesOnWithoutAnyPlaceForItsEvents) {
    // Private empty folders instead of the machine's: neither a journal nor an installed package.
    const int result = test::runInChild([] {
        if (!test::enterPrivateMounts()) return test::kSkip;
        if (::mount("none", "/var", "tmpfs", 0, nullptr) != 0) return test::kSkip;
        if (::mount("none", "/run", "tmpfs", 0, nullptr) != 0) return test::kSkip;
        Logger logger;
        logger.LogAddArchFailed("");
        std::filesystem::create_directories("/var/packages/Ombrel/target/service");
        logger.LogAddServStart("BSD");
        logger.LogAddServStop("IETF");
        logger.LogAddArchFinish("/srv/logs/a.DB");
        logger.LogAddArchFailed("/srv/logs/b.DB");
        const auto lines = linesOf(kEventFile);
        const char* const kNames[] = {"service_started", "service_stopped", "archive_finished", "archive_failed"};
        if (lines.size() != 4) return 1;
        for (size_t i = 0; i < 4; ++i) {
            if (lines[i].find(kNames[i]) == std::string::npos) return 2;
        }
        return 0;
    });
    if (result == test::kSkip) GTEST_SKIP() << "no mount namespace here";
    EXPECT_EQ(result, 0);
}

}  // namespace
}  // namespace ombrel
