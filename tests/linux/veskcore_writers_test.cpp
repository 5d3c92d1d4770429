// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Several writers of one settings file at once, and writers that are killed.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <new>
#include <random>
#include <set>

#include "platform/veskcore.h"
#include "tests/contract/core_handles.h"
#include "tests/linux/child_process.h"

namespace ombrel {
namespace {

using contract::Hash;
using contract::hashOf;

constexpr const char* kWriterFormat = "%s=\"%s\"\n";
constexpr int kKeys = 200;

/// Sets every key of the file to `value`, in one change.
int setAll(const std::string& path, const std::string& value) {
    const Hash keys(VLIBCSzHashAlloc(1024));
    for (int i = 0; i < kKeys; ++i) {
        if (VLIBCSzHashSetValue(keys.get(), ("key" + std::to_string(i)).c_str(), value.c_str()) < 0) return -1;
    }
    return VLIBCFileSetKeys(path.c_str(), keys.get(), 0, kWriterFormat);
}

/// The values that stand in the file, read as one text: one when the file is whole.
std::set<std::string> valuesIn(const std::string& path) {
    std::set<std::string> values;
    const std::string text = test::readBytes(path);
    int lines = 0;
    for (std::size_t at = text.find('"'); at != std::string::npos; at = text.find('"', at + 1)) {
        const std::size_t end = text.find('"', at + 1);
        values.insert(text.substr(at + 1, end - at - 1));
        at = end;
        ++lines;
    }
    if (lines != kKeys) values.insert("<" + std::to_string(lines) + " lines>");
    return values;
}

/// A counter that a child raises and its parent sees.
class SharedCounter {
public:
    SharedCounter()
        : place_(::mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1,
                        0)),
          value_(new (place_) std::atomic<int>(0)) {}
    ~SharedCounter() { (void)::munmap(place_, sizeof(std::atomic<int>)); }
    SharedCounter(const SharedCounter&) = delete;
    SharedCounter& operator=(const SharedCounter&) = delete;
    std::atomic<int>& operator*() { return *value_; }

private:
    void* place_;
    std::atomic<int>* value_;
};

class Writers : public ::testing::Test {
protected:
    // In memory: without a disk to wait for, the writers meet far more often.
    test::TemporaryFolder folder{"/dev/shm"};
    std::string path = folder.at("server.conf");
};

TEST_F(Writers, OfOneFileLoseNeitherOfTheirChanges) {
    constexpr int kEach = 500;
    const auto writeKeys = [&](const std::string& name) {
        for (int i = 0; i < kEach; ++i) {
            const std::string key = name + std::to_string(i);
            if (VLIBCFileSetKeys(path.c_str(), hashOf({{key.c_str(), name}}).get(), 0, kWriterFormat) < 0)
                return 1;
        }
        return 0;
    };
    const pid_t first = test::startChild([&] { return writeKeys("first"); });
    const pid_t second = test::startChild([&] { return writeKeys("second"); });
    EXPECT_EQ(test::awaitChild(first), 0);
    EXPECT_EQ(test::awaitChild(second), 0);
    for (const std::string name : {"first", "second"}) {
        for (int i = 0; i < kEach; ++i) {
            char buffer[16];
            const std::string key = name + std::to_string(i);
            ASSERT_GT(VLIBCFileGetKeyValue(path.c_str(), key.c_str(), buffer, 15, 0), 0) << key;
            ASSERT_EQ(buffer, name);
        }
    }
}

TEST_F(Writers, ThatAddSectionsAtOnceLoseNone) {
    const auto addSections = [&](const std::string& name) {
        for (int i = 0; i < 100; ++i) {
            const std::string section = name + std::to_string(i);
            const Hash keys = hashOf({{"port", "514"}});
            if (VLIBCFileAddSection(path.c_str(), section.c_str(), keys.get(), kWriterFormat) < 0) return 1;
            if (i % 2 == 1 && VLIBCFileRemoveSection(path.c_str(), section.c_str()) < 0) return 2;
        }
        return 0;
    };
    const pid_t first = test::startChild([&] { return addSections("first"); });
    EXPECT_EQ(addSections("second"), 0);
    EXPECT_EQ(test::awaitChild(first), 0);
    contract::List list;
    EXPECT_GE(VLIBCFileEnumSection(path.c_str(), list.address()), 0);
    EXPECT_EQ(list.get()->count, 100);
}

TEST_F(Writers, ShowTheirReadersTheOldFileOrTheNewOne) {
    ASSERT_EQ(setAll(path, "0"), 0);
    const pid_t writer = test::startChild([&] {
        for (int i = 1; i <= 300; ++i) {
            if (setAll(path, std::to_string(i)) != 0) return 1;
        }
        return 0;
    });
    siginfo_t ended{};
    do {
        EXPECT_EQ(::waitid(P_PID, static_cast<id_t>(writer), &ended, WEXITED | WNOHANG | WNOWAIT), 0);
        EXPECT_EQ(valuesIn(path).size(), 1U);
    } while (ended.si_pid == 0 && !HasFailure());
    EXPECT_EQ(test::awaitChild(writer), 0);
    EXPECT_EQ(valuesIn(path), std::set<std::string>{"300"});
}

TEST_F(Writers, KilledAtAnyMomentLeaveTheOldFileOrTheNewOne) {
    std::minstd_rand random(4711);
    ASSERT_EQ(setAll(path, "0"), 0);
    int last = 0;
    for (int round = 0; round < 40; ++round) {
        SharedCounter done;
        *done = last;
        const pid_t writer = test::startChild([&] {
            for (int i = last + 1;; ++i) {
                if (setAll(path, std::to_string(i)) != 0) return 1;
                *done = i;
            }
        });
        const int microseconds = 500 + static_cast<int>(random() % 8000);
        timespec moment{0, microseconds * 1000L};
        (void)::ppoll(nullptr, 0, &moment, nullptr);  // the random moment of the kill
        ASSERT_EQ(::kill(writer, SIGKILL), 0);
        ASSERT_EQ(test::awaitChild(writer), 128 + SIGKILL);
        const std::set<std::string> values = valuesIn(path);
        ASSERT_EQ(values.size(), 1U) << "round " << round;
        const int value = std::stoi(*values.begin());
        EXPECT_GE(value, *done) << "a change that was reported done is gone";
        EXPECT_LE(value, *done + 1);
        last = value;
    }
    EXPECT_GT(last, 0);
    EXPECT_EQ(setAll(path, "end"), 0);
    int entries = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
        entries += entry.exists() ? 1 : 0;
    EXPECT_EQ(entries, 1) << "a temporary file is left";
}

}  // namespace
}  // namespace ombrel
