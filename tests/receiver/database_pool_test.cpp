// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/store/database_pool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <filesystem>
#include <string>
#include <vector>

#include "receiver/store/host_folder.h"
#include "tests/receiver/database_probe.h"
#include "tests/receiver/temp_folder.h"

namespace ombrel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

class DatabasePoolTest : public testing::Test {
protected:
    std::vector<RowBatch> batchOf(const std::vector<std::string>& hosts, const char* receiver = "bsd-udp") {
        RowBatch batch{receiver, {}};
        for (const std::string& host : hosts) {
            LogRow row;
            row.id = {1, ++number};
            row.time = row.received = 1784548800;
            row.host = kept.emplace_back(host);
            row.sender = "192.0.2.1";
            row.parsed.message = row.host;
            batch.rows.push_back(row);
        }
        return {batch};
    }
    [[nodiscard]] std::string hostPath(const std::string& hostFolder) const {
        return hostDatabasePath(folder.path(), hostFolder);
    }

    TempFolder folder;
    LocalClock clock;
    std::deque<std::string> kept;  // what the rows are views of
    std::uint64_t number = 0;
};

TEST_F(DatabasePoolTest, StoresAllHostsInTheSharedDatabase) {
    DatabasePool pool(folder.path(), false, schemaText());
    const auto batches = batchOf({"a", "b"});
    ASSERT_TRUE(pool.store(batches, clock).stored);
    EXPECT_THAT(messages(sharedDatabasePath(folder.path())), ElementsAre("a", "b"));
}

TEST_F(DatabasePoolTest, StoresEachHostInItsOwnDatabase) {
    DatabasePool pool(folder.path(), true, schemaText());
    const std::vector<std::string> hosts = {"a", "../../etc", "a", "local"};
    const auto batches = batchOf(hosts);
    const StoreOutcome outcome = pool.store(batches, clock);
    ASSERT_TRUE(outcome.stored) << outcome.error;
    EXPECT_EQ(outcome.rows, 4U);
    EXPECT_THAT(messages(hostPath("a")), ElementsAre("a", "a"));
    EXPECT_THAT(messages(hostPath("%2E.%2F..%2Fetc")), ElementsAre("../../etc"));
    EXPECT_THAT(messages(hostPath("%6Cocal")), ElementsAre("local"));
    EXPECT_EQ(pool.store(batches, clock).repeated, 4U) << "each database knows its part of a batch";
}

TEST_F(DatabasePoolTest, StoresWhatThisMachineLogsApart) {
    for (const bool byDevice : {false, true}) {
        const std::string logs = folder / (byDevice ? "by-device" : "shared");
        std::filesystem::create_directory(logs);
        DatabasePool pool(logs, byDevice, schemaText());
        auto batches = batchOf({"a"});
        batches.push_back(batchOf({"me", "me"}, "local-socket").front());
        batches.push_back(batchOf({"me"}, "local-kernel").front());
        const StoreOutcome outcome = pool.store(batches, clock);
        ASSERT_TRUE(outcome.stored) << outcome.error;
        EXPECT_EQ(outcome.rows, 4U);
        EXPECT_THAT(messages(localDatabasePath(logs)), ElementsAre("me", "me", "me"));
        EXPECT_THAT(messages(byDevice ? hostDatabasePath(logs, "a") : sharedDatabasePath(logs)), ElementsAre("a"));
        EXPECT_EQ(pool.store(batches, clock).repeated, 4U) << "each database knows its receivers";
        EXPECT_FALSE(std::filesystem::exists(logs + "/me"));
    }
}

TEST_F(DatabasePoolTest, KeepsTheRestWhenTheLocalDatabaseCannotBeWritten) {
    DatabasePool pool(folder.path(), false, schemaText());
    std::filesystem::create_directory(localDatabasePath(folder.path()));
    auto batches = batchOf({"a"});
    batches.push_back(batchOf({"me"}, "local-journal").front());
    const StoreOutcome outcome = pool.store(batches, clock);
    EXPECT_FALSE(outcome.stored);
    EXPECT_THAT(outcome.error, HasSubstr("VESKSYSLOGDB__LOCALARCH.DB"));
    std::filesystem::remove(localDatabasePath(folder.path()));
    ASSERT_TRUE(pool.store(batches, clock).stored);
    EXPECT_THAT(messages(sharedDatabasePath(folder.path())), ElementsAre("a")) << "stored once";
    EXPECT_THAT(messages(localDatabasePath(folder.path())), ElementsAre("me"));
}

TEST_F(DatabasePoolTest, StoresWhatIsKeptWholeByHostLikeAnyMessage) {
    for (const bool byDevice : {false, true}) {
        const std::string logs = folder / (byDevice ? "by-device" : "shared");
        std::filesystem::create_directory(logs);
        DatabasePool pool(logs, byDevice, schemaText());
        auto batches = batchOf({"192.0.2.1", "2001:db8::1"}, "custrule-raw-tcp");
        batches.push_back(batchOf({"me"}, "local-raw-socket").front());
        const StoreOutcome outcome = pool.store(batches, clock);
        ASSERT_TRUE(outcome.stored) << outcome.error;
        EXPECT_EQ(outcome.rows, 3U);
        EXPECT_THAT(messages(localDatabasePath(logs)), ElementsAre("me"));
        if (byDevice) {
            EXPECT_THAT(messages(hostDatabasePath(logs, "192.0.2.1")), ElementsAre("192.0.2.1"));
            EXPECT_THAT(messages(hostDatabasePath(logs, "2001%3Adb8%3A%3A1")), ElementsAre("2001:db8::1"));
        } else {
            EXPECT_THAT(messages(sharedDatabasePath(logs)), ElementsAre("192.0.2.1", "2001:db8::1"));
        }
        EXPECT_EQ(pool.store(batches, clock).repeated, 3U);
    }
}

TEST_F(DatabasePoolTest, StoresHostsBeyondTheBoundTogether) {
    std::filesystem::create_directory(folder / "known");
    const std::vector<std::string> hosts = {"one", "two", "three", "known", "one"};
    const auto batches = batchOf(hosts);
    DatabasePool pool(folder.path(), true, schemaText(), {64, 3});
    ASSERT_TRUE(pool.store(batches, clock).stored);
    EXPECT_THAT(messages(hostPath("one")), ElementsAre("one", "one"));
    EXPECT_THAT(messages(hostPath("two")), ElementsAre("two"));
    EXPECT_THAT(messages(hostPath("known")), ElementsAre("known"));
    EXPECT_THAT(messages(hostPath("+other")), ElementsAre("three"));
}

TEST_F(DatabasePoolTest, StoresAHostElsewhereWhoseFolderCannotBe) {
    writeText(folder / "a", "a file");
    DatabasePool pool(folder.path(), true, schemaText());
    const std::vector<std::string> hosts = {"a"};
    ASSERT_TRUE(pool.store(batchOf(hosts), clock).stored);
    EXPECT_THAT(messages(hostPath("+other")), ElementsAre("a"));
    EXPECT_EQ(readText(folder / "a"), "a file");
}

TEST_F(DatabasePoolTest, ServesMoreHostsThanItKeepsOpen) {
    DatabasePool pool(folder.path(), true, schemaText(), {2, 100});
    std::vector<std::string> hosts;
    for (int i = 0; i < 7; ++i)
        hosts.push_back("h" + std::to_string(i));
    ASSERT_TRUE(pool.store(batchOf(hosts), clock).stored);
    ASSERT_TRUE(pool.store(batchOf(hosts), clock).stored);
    for (const std::string& host : hosts)
        EXPECT_THAT(messages(hostPath(host)), ElementsAre(host, host));
}

TEST_F(DatabasePoolTest, StoresForManyHostsAtOnce) {
    DatabasePool pool(folder.path(), true, schemaText());
    std::vector<std::string> hosts;
    for (int i = 0; i < 600; ++i)
        hosts.push_back("h" + std::to_string(i % 60));
    const StoreOutcome outcome = pool.store(batchOf(hosts), clock);
    ASSERT_TRUE(outcome.stored) << outcome.error;
    EXPECT_EQ(outcome.rows, 600U);
    for (int i = 0; i < 60; ++i)
        EXPECT_EQ(rowCount(hostPath("h" + std::to_string(i))), "10");
}

TEST_F(DatabasePoolTest, StoresOnceWhatComesAgainSinceOneOfManyFailed) {
    std::vector<std::string> hosts;
    for (int i = 0; i < 30; ++i)
        hosts.push_back("h" + std::to_string(i));
    std::filesystem::create_directories(hostPath("h7"));
    const auto batches = batchOf(hosts);
    DatabasePool pool(folder.path(), true, schemaText());
    const StoreOutcome outcome = pool.store(batches, clock);
    EXPECT_FALSE(outcome.stored);
    EXPECT_THAT(outcome.error, HasSubstr(hostPath("h7")));
    std::filesystem::remove(hostPath("h7"));
    EXPECT_TRUE(pool.store(batches, clock).stored);
    for (const std::string& host : hosts)
        EXPECT_THAT(messages(hostPath(host)), ElementsAre(host));
}

TEST_F(DatabasePoolTest, TellsWhichDatabaseCannotBeWritten) {
    DatabasePool pool(folder / "no/such/folder", false, schemaText());
    const std::vector<std::string> hosts = {"a"};
    const StoreOutcome outcome = pool.store(batchOf(hosts), clock);
    EXPECT_FALSE(outcome.stored);
    EXPECT_THAT(outcome.error, HasSubstr("no/such/folder/VESKSYSLOGDB__ARCH.DB"));
}

}  // namespace
}  // namespace ombrel
