// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The package's service jobs, and the step with which an update of the settings switches one of them.
#pragma once

#include <string>

inline constexpr const char* kBsdJob = "pkg-Ombrel-bsd";
inline constexpr const char* kIetfJob = "pkg-Ombrel-ietf";
inline constexpr const char* kLocalArchiveJob = "pkg-Ombrel-localarchive";
inline constexpr const char* kCustomRuleJob = "pkg-Ombrel-custrule";

/// Stops a job; a failure is logged, with this line.
/// @return 0 or -1
int stopServiceJob(const char* job, int line);

/// Brings a job that the caller has stopped to its new state: starts it when `enable` is set. A change from
/// `wasEnabled` is recorded in the file of enabled jobs and entered as an event with `description`.
/// Waits until the job is up.
/// @return 0; -1 when the job does not start (logged; nothing is recorded then) and when the record cannot be
///         written (no event is entered then; a started job keeps running)
int SyslogServiceEnableSet(const std::string& jobName, const std::string& description, bool wasEnabled,
                           bool enable);
