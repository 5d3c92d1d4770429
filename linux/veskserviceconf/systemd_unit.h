// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A job's unit for systemd, rendered from its definition, with a timer for one that is run again and again. The
// first line of such a file says that it is ours.
#pragma once

#include <string>
#include <vector>

#include "linux/veskserviceconf/job_definition.h"

namespace ombrel {

/// The unit file NAME.service (systemd.service(5)).
/// @param jobFolder  where the definition is, as the unit is to name it
std::string renderUnit(const JobDefinition& job, const std::string& jobFolder);
/// NAME.timer (systemd.timer(5)), which is what is switched on and off then.
std::string renderTimer(const JobDefinition& job, const std::string& jobFolder);

/// Writes unitFolder/NAME.service and, of a job with a timer, NAME.timer, each file as a whole; a timer that was
/// made of an earlier definition is removed.
/// @return 0; -1 with errno set and entered in the error record: EEXIST when there is a unit of that name that
///         somebody else has made
int writeUnit(const JobDefinition& job, const std::string& jobFolder, const std::string& unitFolder);

/// Removes the units that were made from definitions of `jobFolder` that are not among `jobs`, and their link that
/// has them started at boot.
/// @param removed  gets their names
/// @return 0; -1 with errno set and entered in the error record
int removeStaleUnits(const std::vector<JobDefinition>& jobs, const std::string& jobFolder,
                     const std::string& unitFolder, std::vector<std::string>& removed);

}  // namespace ombrel
