// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Puts the messages of a log file into the working database, while the log writer may be running.
#pragma once

#include <optional>
#include <string>

namespace ombrel {

struct ImportOptions {
    std::string settingsFile;
    std::string schemaFile;
    std::string file;         ///< "-" is standard input
    std::optional<int> year;  ///< of the first line without one
    std::string host = "localhost";
};

/// Exit code of sysexits.h; what went wrong, the progress (on a terminal) and a summary go to standard error.
int importCommand(const ImportOptions& options);

}  // namespace ombrel
