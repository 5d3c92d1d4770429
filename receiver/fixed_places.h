// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Where the receivers and the log writer meet.
#pragma once

#include <cstdint>

namespace ombrel {

inline constexpr const char* kSettingsFile = "/var/packages/Ombrel/target/service/conf/server.conf";
inline constexpr const char* kRuleFile = "/var/packages/Ombrel/target/service/conf/custrule.conf";
inline constexpr const char* kEnabledJobsFile = "/var/packages/Ombrel/target/service/conf/enable_services";
inline constexpr const char* kSchemaFile = "/usr/vesk/syslog/schema/loginfo2.sql";
inline constexpr const char* kRunFolder = "/var/packages/Ombrel/target/service/run";
inline constexpr std::uint16_t kWriterPort = 5615;  // on 127.0.0.1

}  // namespace ombrel
