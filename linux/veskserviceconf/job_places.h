// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Where the service jobs are defined, supervised and logged.
#pragma once

namespace ombrel {

inline constexpr const char* kJobFolder = "/var/packages/Ombrel/target/jobs";
inline constexpr const char* kScanFolder = "/var/packages/Ombrel/target/service/run/scan";
inline constexpr const char* kJobLogFolder = "/var/packages/Ombrel/target/service/log";

inline constexpr const char* kUnitFolder = "/etc/systemd/system";

/// Run when a job has ended; enters what nobody asked for as an event.
inline constexpr const char* kJobEnded = "/var/packages/Ombrel/target/sbin/ombrel-job-ended";

/// In a job's service folder: the name of the signal that makes it read its configuration again.
inline constexpr const char* kReloadSignalFile = "data/reload-signal";

}  // namespace ombrel
