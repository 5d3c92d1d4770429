// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The product's paths are fixed and compiled in.
#pragma once

inline constexpr const char* kSettingsFile = "/var/packages/Ombrel/target/service/conf/server.conf";
inline constexpr const char* kRuleFile = "/var/packages/Ombrel/target/service/conf/custrule.conf";
inline constexpr const char* kEnabledJobsFile = "/var/packages/Ombrel/target/service/conf/enable_services";
inline constexpr const char* kPortFile = "/usr/local/etc/services.d/vesk_syslog.sc";
inline constexpr const char* kPostProcessTool = "/var/packages/Ombrel/target/tool/vesksyslogpostproc";
inline constexpr const char* kSchemaFile = "/usr/vesk/syslog/schema/loginfo2.sql";
