// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// All jobs of the package, in the order in which people read them.
#pragma once

#include <array>

#include "src/service_jobs.h"

namespace ombrel {

inline constexpr const char* kWriterJob = "pkg-Ombrel-syslog";
inline constexpr const char* kNotifyService = "syslog-notify";
inline constexpr const char* kScheduleJob = "pkg-Ombrel-schedule";
inline constexpr std::array kJobNames = {kWriterJob,     kBsdJob,      kIetfJob,      kLocalArchiveJob,
                                         kCustomRuleJob, kScheduleJob, kNotifyService};

}  // namespace ombrel
