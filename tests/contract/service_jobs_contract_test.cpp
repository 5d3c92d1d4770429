// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Service jobs, on every platform. Each test has jobs of its own names, since real ones share a supervisor.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>

#include "platform/veskserviceconf.h"
#include "tests/contract/contract_fixture.h"

namespace ombrel::contract {
namespace {

class ServiceJobs : public ContractTest {
protected:
    static bool runs(const char* job) { return VLIBServicectlIsJobRunning(job, 0) != 0; }
};

#define MAKE_JOB(job, kind) \
    if (!world->makeJob(job, kind)) GTEST_SKIP() << world->whyNot()

TEST_F(ServiceJobs, RunFromTheirStartToTheirStop) {
    MAKE_JOB("simple", JobKind::kReadyAtOnce);
    EXPECT_FALSE(runs("simple"));
    EXPECT_GE(VLIBServicectlJobStart("simple"), 0);
    EXPECT_TRUE(runs("simple"));
    EXPECT_GE(VLIBServicectlJobStop("simple"), 0);
    EXPECT_FALSE(runs("simple"));
}

TEST_F(ServiceJobs, AreStartedAndStoppedTwiceWithSuccess) {
    MAKE_JOB("twice", JobKind::kReadyAtOnce);
    EXPECT_GE(VLIBServicectlJobStop("twice"), 0);
    EXPECT_GE(VLIBServicectlJobStart("twice"), 0);
    EXPECT_GE(VLIBServicectlJobStart("twice"), 0);
    EXPECT_TRUE(runs("twice"));
    EXPECT_GE(VLIBServicectlJobStop("twice"), 0);
    EXPECT_GE(VLIBServicectlJobStop("twice"), 0);
    EXPECT_FALSE(runs("twice"));
}

TEST_F(ServiceJobs, RunAfterARestartWhetherTheyRanOrNot) {
    MAKE_JOB("again", JobKind::kReadyAtOnce);
    EXPECT_GE(VLIBServicectlRestart("again", 0), 0);
    EXPECT_TRUE(runs("again"));
    EXPECT_GE(VLIBServicectlRestart("again", 0), 0);
    EXPECT_TRUE(runs("again"));
}

TEST_F(ServiceJobs, AreReloadedOnlyWhileTheyRun) {
    MAKE_JOB("reloaded", JobKind::kReadyAtOnce);
    EXPECT_LT(VLIBServicectlJobReload("reloaded"), 0);
    ASSERT_GE(VLIBServicectlJobStart("reloaded"), 0);
    EXPECT_GE(VLIBServicectlJobReload("reloaded"), 0);
    EXPECT_TRUE(runs("reloaded"));
}

TEST_F(ServiceJobs, DoNotTouchOneAnother) {
    MAKE_JOB("one", JobKind::kReadyAtOnce);
    MAKE_JOB("other", JobKind::kReadyAtOnce);
    ASSERT_GE(VLIBServicectlJobStart("one"), 0);
    EXPECT_FALSE(runs("other"));
    ASSERT_GE(VLIBServicectlJobStart("other"), 0);
    ASSERT_GE(VLIBServicectlJobStop("one"), 0);
    EXPECT_TRUE(runs("other"));
}

TEST_F(ServiceJobs, ThatExitAtOnceAreNotStarted) {
    MAKE_JOB("exits", JobKind::kExitsAtOnce);
    EXPECT_LT(VLIBServicectlJobStart("exits"), 0);
    EXPECT_FALSE(runs("exits"));
    EXPECT_LT(VLIBServicectlRestart("exits", 0), 0);
}

TEST_F(ServiceJobs, ThatIgnoreTheSignalAreStoppedAllTheSame) {
    MAKE_JOB("stubborn", JobKind::kIgnoresSigterm);
    ASSERT_GE(VLIBServicectlJobStart("stubborn"), 0);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_GE(VLIBServicectlJobStop("stubborn"), 0);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    std::printf("stopped after %.3f s\n", taken.count());
    EXPECT_FALSE(runs("stubborn"));
}

TEST_F(ServiceJobs, ThatAreSystemServicesAreStartedAndStoppedTwiceWithSuccess) {
    MAKE_JOB("service", JobKind::kReadyAtOnce);
    for (int round = 0; round < 2; ++round) {
        EXPECT_GE(VLIBServiceStart("service", 1), 0);
        EXPECT_TRUE(world->isFake() || runs("service"));
    }
    for (int round = 0; round < 2; ++round) {
        EXPECT_GE(VLIBServiceStop("service", 1), 0);
        EXPECT_FALSE(runs("service"));
    }
}

TEST_F(ServiceJobs, ThatNobodyDefinedAreRefused) {
    MAKE_JOB("known", JobKind::kReadyAtOnce);
    if (world->isFake()) GTEST_SKIP() << "the fake platform makes a job of every name";
    for (const char* job : {"unknown", "", "../known", "known/", ".", "a b"}) {
        EXPECT_LT(VLIBServicectlJobStart(job), 0) << job;
        EXPECT_LT(VLIBServicectlJobStop(job), 0) << job;
        EXPECT_LT(VLIBServicectlJobReload(job), 0) << job;
        EXPECT_LT(VLIBServicectlRestart(job, 0), 0) << job;
        EXPECT_LT(VLIBServiceStart(job, 1), 0) << job;
        EXPECT_LT(VLIBServiceStop(job, 1), 0) << job;
        EXPECT_FALSE(runs(job)) << job;
    }
    EXPECT_LT(VLIBServicectlJobStart(nullptr), 0);
    EXPECT_LT(VLIBServiceStart(nullptr, 1), 0);
    EXPECT_LT(VLIBServiceStop(nullptr, 1), 0);
}

}  // namespace
}  // namespace ombrel::contract
