// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A job's service folder for s6, rendered from its definition.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "linux/veskserviceconf/job_definition.h"

namespace ombrel {

struct ServiceFile {
    std::string name;  ///< relative to the service folder, at most one folder deep
    std::string text;
    mode_t mode;
};

/// All files but `down`, which says whether a job is on and so belongs to whoever starts and stops it.
/// @param logFolder  what the job prints goes to logFolder/NAME, at most eleven files of a megabyte
std::vector<ServiceFile> renderServiceFolder(const JobDefinition& job, const std::string& logFolder);

/// Writes the service folder scanFolder/NAME. A new one appears as a whole, with the job off; in one that is
/// there each file is replaced as a whole, and the job stays on or off.
/// @return 0; -1 with errno set and entered in the error record
int writeServiceFolder(const JobDefinition& job, const std::string& scanFolder, const std::string& logFolder);

}  // namespace ombrel
