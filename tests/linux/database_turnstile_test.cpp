// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The turnstile between writers and movers.
#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <thread>

#include "linux/common/turnstile.h"
#include "tests/linux/child_process.h"

namespace ombrel {
namespace {

using namespace std::chrono_literals;

class TurnstileOfFolder : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(writer.open(path));
        ASSERT_TRUE(mover.open(path));
    }

    test::TemporaryFolder folder;
    std::string path = folder.at("VESKSYSLOGDB__ARCH.DB");
    Turnstile writer;
    Turnstile mover;
};

TEST_F(TurnstileOfFolder, LetsWritersPassWhenNobodyHoldsIt) {
    Turnstile another;
    ASSERT_TRUE(another.open(path));
    EXPECT_EQ(writer.pass(0ms), TurnstileResult::kEntered);
    EXPECT_EQ(another.pass(0ms), TurnstileResult::kEntered);
    EXPECT_EQ(mover.hold(0ms), TurnstileResult::kEntered) << "a writer that has passed holds nothing";
}

TEST_F(TurnstileOfFolder, KeepsEveryoneOutWhileItIsHeld) {
    ASSERT_EQ(mover.hold(0ms), TurnstileResult::kEntered);
    EXPECT_EQ(writer.pass(20ms), TurnstileResult::kTimeout);
    EXPECT_EQ(writer.hold(20ms), TurnstileResult::kTimeout);
    mover.leave();
    EXPECT_EQ(writer.pass(0ms), TurnstileResult::kEntered);
}

TEST_F(TurnstileOfFolder, LetsAWaitingWriterPassWhenItIsLeft) {
    ASSERT_EQ(mover.hold(0ms), TurnstileResult::kEntered);
    TurnstileResult result = TurnstileResult::kFailed;
    std::thread waiting([&] { result = writer.pass(10s); });
    mover.leave();
    waiting.join();
    EXPECT_EQ(result, TurnstileResult::kEntered);
}

TEST_F(TurnstileOfFolder, IsFreeWhenItsHolderIsGone) {
    EXPECT_EQ(test::runInChild([&] {
                  Turnstile held;
                  return held.open(path) && held.hold(0ms) == TurnstileResult::kEntered ? 0 : 1;
              }),
              0);
    EXPECT_EQ(writer.pass(0ms), TurnstileResult::kEntered);
}

TEST_F(TurnstileOfFolder, NeedsAFolder) {
    Turnstile none;
    EXPECT_FALSE(none.open(folder.at("nowhere/file.DB")));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(none.pass(0ms), TurnstileResult::kFailed);
}

}  // namespace
}  // namespace ombrel
