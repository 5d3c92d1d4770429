// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The log writer as a receiver sees it: what is answered is in the database.
#include "receiver/writer/log_writer.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sysexits.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "receiver/message/batch_frame.h"
#include "receiver/store/host_folder.h"
#include "receiver/token.h"
#include "tests/receiver/batch_client.h"
#include "tests/receiver/database_probe.h"
#include "tests/receiver/settings_file.h"
#include "tests/receiver/temp_folder.h"

namespace ombrel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class LogWriterTest : public testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directories(folder / "run");
        std::filesystem::create_directories(folder / "logs");
        configure({});
    }
    void TearDown() override { stop(); }

    void configure(Settings changed) {
        changed.emplace("arch_dest", folder / "logs");
        changed.emplace("system_flush_timeout", "0");
        writeSettings(folder / "server.conf", changed);
    }
    [[nodiscard]] LogWriterOptions options() const {
        return {folder / "server.conf", OMBREL_SCHEMA_FILE, folder / "run", 0, -1};
    }
    void start() {
        writer = std::make_unique<LogWriter>(options());
        ASSERT_EQ(writer->start(), EX_OK);
        token = readOrMakeToken(folder / "run").value_or("");
        thread = std::thread([this] { exitCode = writer->run(); });
    }
    void stop() {
        if (!thread.joinable()) return;
        ::kill(::getpid(), SIGTERM);
        thread.join();
        EXPECT_EQ(exitCode, EX_OK);
    }
    [[nodiscard]] BatchClient client() const { return {writer->port(), token}; }
    [[nodiscard]] std::string shared() const { return sharedDatabasePath(folder / "logs"); }

    TempFolder folder;
    std::unique_ptr<LogWriter> writer;
    std::string token;
    std::thread thread;
    int exitCode = -1;
};

TEST_F(LogWriterTest, AnswersABatchThatIsInTheDatabase) {
    start();
    const BatchClient receiver = client();
    receiver.post(batchLine(1, "<13>first") + batchLine(2, "<13>second"));
    EXPECT_EQ(receiver.answer(), "200");
    EXPECT_THAT(messages(shared()), ElementsAre("first", "second"));
    receiver.post(batchLine(2, "<13>second") + batchLine(3, "<13>third"));
    EXPECT_EQ(receiver.answer(), "200");
    EXPECT_THAT(messages(shared()), ElementsAre("first", "second", "third"));
}

TEST_F(LogWriterTest, KeepsWhatThisMachineLogsApart) {
    for (const char* const byDevice : {"0", "1"}) {
        configure({{"arch_by_device", byDevice}, {"arch_dest", folder / (std::string("logs") + byDevice)}});
        std::filesystem::create_directory(folder / (std::string("logs") + byDevice));
        start();
        const BatchClient receiver = client();
        receiver.post(batchLine(1, "<13>Jul 20 12:00:00 app: own"), "local-socket");
        EXPECT_EQ(receiver.answer(), "200");
        receiver.post(batchLine(1, "<13>Jul 20 12:00:00 app: own") + batchLine(2, "<4>1 - - kernel - - - up"),
                      "local-socket");
        EXPECT_EQ(receiver.answer(), "200");
        stop();
        const std::string path = localDatabasePath(folder / (std::string("logs") + byDevice));
        EXPECT_THAT(messages(path), ElementsAre("own", "up"));
        std::array<char, 256> name{};
        ASSERT_EQ(::gethostname(name.data(), name.size() - 1), 0);
        EXPECT_THAT(query(path, "SELECT name FROM hosts"), ElementsAre(name.data()));
        EXPECT_FALSE(std::filesystem::exists(sharedDatabasePath(folder / (std::string("logs") + byDevice))));
    }
}

TEST_F(LogWriterTest, KeepsTheLinesOfRawReceiversWholeAndTakesTheOthersApart) {
    start();
    const BatchClient receiver = client();
    const std::string text = "<86>Jul 20 12:00:00 alpha app[7]: hello";
    for (const char* const name : {"custrule-raw-tcp", "custrule-tcp", "local-socket"}) {
        receiver.post(batchLine(1, text) + batchLine(2, ""), name);
        EXPECT_EQ(receiver.answer(), "200") << name;
    }
    stop();
    const char* const all =
        "SELECT hosts.name, programs.name, facilities.name, severity, pid IS NULL, sutcsec IS NULL, msg"
        " FROM logs JOIN hosts ON hosts.id = host JOIN programs ON programs.id = program"
        " JOIN facilities ON facilities.id = facility ORDER BY logs.id";
    EXPECT_THAT(query(shared(), all),
                ElementsAre("192.0.2.1||user|5|1|1|" + text, "alpha|app|authpriv|6|0|0|hello"));
    EXPECT_THAT(messages(localDatabasePath(folder / "logs")), ElementsAre(HasSubstr("hello")));
}

TEST_F(LogWriterTest, ReportsThatItIsReady) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const Fd reader(ends[0]);
    LogWriterOptions notifying = options();
    notifying.notifyFd = ends[1];
    LogWriter ready(notifying);
    ASSERT_EQ(ready.start(), EX_OK);
    char text[8];
    EXPECT_EQ(::read(reader.get(), text, sizeof text), 1);
    EXPECT_EQ(text[0], '\n');
    EXPECT_EQ(::read(reader.get(), text, sizeof text), 0) << "and closes the descriptor";
}

TEST_F(LogWriterTest, TakesALargeBatchOfOneReceiverAfterTheOther) {
    start();
    const BatchClient receiver = client();
    const std::string text = "<13>" + std::string(1000, 't');
    for (std::uint64_t batch = 0; batch < 3; ++batch) {
        std::string body;
        for (std::uint64_t i = 0; i < kFullBatchLines; ++i)
            body += batchLine(batch * kFullBatchLines + i, text);
        receiver.post(body);
        EXPECT_EQ(receiver.answer(), "200");
    }
    EXPECT_EQ(rowCount(shared()), std::to_string(3 * kFullBatchLines));
}

TEST_F(LogWriterTest, WaitsForMoreRowsAndCommitsThemTogether) {
    configure({{"system_flush_timeout", "5"}, {"system_flush_line", "3"}});
    start();
    const BatchClient one = client();
    const BatchClient two = client();
    one.post(batchLine(1, "<13>a") + batchLine(2, "<13>b"), "bsd-tcp");
    EXPECT_EQ(one.answer(300), "waiting");
    two.post(batchLine(3, "<13>c"), "bsd-udp");
    EXPECT_EQ(two.answer(), "200");
    EXPECT_EQ(one.answer(), "200");
    EXPECT_THAT(messages(shared()), ElementsAre("a", "b", "c"));
}

TEST_F(LogWriterTest, CommitsWhenTimeIsUp) {
    configure({{"system_flush_timeout", "1"}, {"system_flush_line", "1000"}});
    start();
    const auto before = std::chrono::steady_clock::now();
    const BatchClient receiver = client();
    receiver.post(batchLine(1, "<13>a"));
    EXPECT_EQ(receiver.answer(), "200");
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(990));
}

TEST_F(LogWriterTest, CommitsAFullBatchAtOnce) {
    configure({{"system_flush_timeout", "5"}, {"system_flush_line", "1000000"}});
    start();
    std::string body;
    for (std::uint64_t i = 0; i < kFullBatchLines; ++i)
        body += batchLine(i, "x");
    const auto before = std::chrono::steady_clock::now();
    const BatchClient receiver = client();
    receiver.post(body);
    EXPECT_EQ(receiver.answer(), "200");
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(4));
}

TEST_F(LogWriterTest, CommitsWhatWaitsWhenItIsToldToEnd) {
    configure({{"system_flush_timeout", "5"}, {"system_flush_line", "1000"}});
    start();
    const BatchClient receiver = client();
    receiver.post(batchLine(1, "<13>a"));
    EXPECT_EQ(receiver.answer(300), "waiting");
    stop();
    EXPECT_EQ(receiver.answer(), "200");
    EXPECT_THAT(messages(shared()), ElementsAre("a"));
}

TEST_F(LogWriterTest, ClosesTheConnectionOfWhoeverDoesNotKnowTheToken) {
    start();
    const BatchClient stranger(writer->port(), std::string(64, '0'));
    stranger.post(batchLine(1, "<13>forged"));
    EXPECT_EQ(stranger.answer(), "closed");
    const BatchClient silent = client();
    silent.send("POST /bsd-tcp HTTP/1.1\r\nHost: x\r\nContent-Length: 0\r\n\r\n");
    EXPECT_EQ(silent.answer(), "closed");
    const BatchClient odd = client();
    odd.post(batchLine(1, "<13>x"), "../etc");
    EXPECT_EQ(odd.answer(), "closed");
    EXPECT_FALSE(std::filesystem::exists(shared()));
}

TEST_F(LogWriterTest, PutsABodyAsideThatIsNoBatch) {
    start();
    const BatchClient receiver = client();
    receiver.post(batchLine(1, "<13>good") + "poison\n");
    EXPECT_EQ(receiver.answer(), "200") << "the queue goes on";
    EXPECT_THAT(readText(folder / "run/unreadable-batches"), HasSubstr("<13>good\npoison\n"));
    receiver.post(batchLine(2, "<13>next"));
    EXPECT_EQ(receiver.answer(), "200");
    EXPECT_THAT(messages(shared()), ElementsAre("next"));
}

TEST_F(LogWriterTest, CommitsWhatWaitsWhenAnEmptyBatchComes) {
    configure({{"system_flush_timeout", "5"}, {"system_flush_line", "1000"}});
    start();
    const BatchClient receiver = client();
    receiver.post(batchLine(1, "<13>a"));
    EXPECT_EQ(receiver.answer(300), "waiting");
    const BatchClient impatient = client();
    impatient.post("");
    EXPECT_EQ(impatient.answer(1000), "200");
    EXPECT_EQ(receiver.answer(1000), "200");
    EXPECT_THAT(messages(shared()), ElementsAre("a"));
}

TEST_F(LogWriterTest, KeepsABatchUnansweredThatCannotBeStoredAndGoesOnAfterwards) {
    std::filesystem::remove_all(folder / "logs");
    writeText(folder / "logs", "in the way");
    start();
    const BatchClient receiver = client();
    receiver.post(batchLine(1, "<13>a"));
    EXPECT_EQ(receiver.answer(300), "waiting") << "no answer at once: the receiver would send it again at once";
    EXPECT_EQ(receiver.answer(), "closed");
    std::filesystem::remove(folder / "logs");
    const BatchClient again = client();
    again.post(batchLine(1, "<13>a"));
    EXPECT_EQ(again.answer(), "200");
    EXPECT_THAT(messages(shared()), ElementsAre("a"));
}

TEST_F(LogWriterTest, FollowsItsSettingsBetweenTwoBatches) {
    start();
    const BatchClient receiver = client();
    receiver.post(batchLine(1, "<13>Jul 20 12:00:00 alpha app: a"));
    EXPECT_EQ(receiver.answer(), "200");
    configure({{"arch_by_device", "1"}});
    std::uint64_t number = 1;
    const std::string ofHost = hostDatabasePath(folder / "logs", "alpha");
    // The change is seen with the first wake-up after it; the batch may be the one that wakes.
    while (!std::filesystem::exists(ofHost) && number < 100) {
        receiver.post(batchLine(++number, "<13>Jul 20 12:00:00 alpha app: b"));
        ASSERT_EQ(receiver.answer(), "200");
    }
    EXPECT_EQ(rowCount(ofHost), "1");
    EXPECT_EQ(rowCount(shared()), std::to_string(number - 1));
}

TEST_F(LogWriterTest, KeepsItsSettingsWhenTheNewOnesCannotBeRead) {
    start();
    writeText(folder / "server.conf", "junk");
    const BatchClient receiver = client();
    receiver.post(batchLine(1, "<13>a"));
    EXPECT_EQ(receiver.answer(), "200");
    EXPECT_THAT(messages(shared()), ElementsAre("a"));
}

TEST_F(LogWriterTest, GoesOnInAFreshDatabaseWhenItsOwnIsMovedAway) {
    start();
    const BatchClient receiver = client();
    receiver.post(batchLine(1, "<13>a"));
    EXPECT_EQ(receiver.answer(), "200");
    std::filesystem::rename(shared(), folder / "logs/archive.DB");
    receiver.post(batchLine(2, "<13>b"));
    EXPECT_EQ(receiver.answer(), "200");
    EXPECT_THAT(messages(folder / "logs/archive.DB"), ElementsAre("a"));
    EXPECT_THAT(messages(shared()), ElementsAre("b"));
}

TEST_F(LogWriterTest, DoesNotStartWithoutWhatItNeeds) {
    LogWriterOptions noSettings = options();
    noSettings.settingsFile = folder / "missing.conf";
    EXPECT_EQ(LogWriter(noSettings).start(), EX_CONFIG);
    LogWriterOptions noLayout = options();
    noLayout.schemaFile = folder / "missing.sql";
    EXPECT_EQ(LogWriter(noLayout).start(), EX_OSFILE);
    LogWriterOptions noRun = options();
    noRun.runFolder = folder / "missing";
    EXPECT_EQ(LogWriter(noRun).start(), EX_NOPERM);
    start();
    LogWriterOptions taken = options();
    taken.port = writer->port();
    EXPECT_EQ(LogWriter(taken).start(), EX_UNAVAILABLE);
}

}  // namespace
}  // namespace ombrel
