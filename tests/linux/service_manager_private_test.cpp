// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A machine without a service manager that we know.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "linux/common/error_record.h"
#include "linux/veskserviceconf/job_places.h"
#include "platform/veskserviceconf.h"
#include "tests/linux/private_world.h"

using namespace ombrel;

namespace {

class NoServiceManager : public test::PrivateRootTest {};

TEST_F(NoServiceManager, MakesEveryCallFailWithTheReason) {
    ASSERT_FALSE(std::filesystem::exists(kScanFolder));
    EXPECT_EQ(VLIBServicectlJobStart("pkg-Ombrel-syslog"), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(EOPNOTSUPP));
    EXPECT_EQ(VLIBServicectlJobStop("pkg-Ombrel-syslog"), -1);
    EXPECT_EQ(VLIBServicectlJobReload("pkg-Ombrel-syslog"), -1);
    EXPECT_EQ(VLIBServicectlRestart("pkg-Ombrel-syslog", 0), -1);
    EXPECT_EQ(VLIBServiceStart("syslog-notify", 1), -1);
    EXPECT_EQ(VLIBServiceStop("syslog-notify", 1), -1);
    EXPECT_EQ(VLIBServicectlIsJobRunning("pkg-Ombrel-syslog", 0), 0);
}

/// Where systemd keeps its run-time files it is the manager of the machine (sd_booted(3)), whatever else is there.
TEST_F(NoServiceManager, ButSystemdIsAskedWhereItBootedTheMachine) {
    ASSERT_EQ(::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/run/no-bus", 1), 0);
    std::filesystem::create_directories(kScanFolder);
    mountTmpfs("/run");
    std::filesystem::create_directories("/run/systemd/system");
    EXPECT_EQ(VLIBServicectlJobStart("pkg-Ombrel-syslog"), -1);
    EXPECT_EQ(VLIBCErrGet(), fromErrno(ENOENT));
    std::filesystem::remove(kScanFolder);
    ASSERT_EQ(::unsetenv("DBUS_SYSTEM_BUS_ADDRESS"), 0);
}

}  // namespace
