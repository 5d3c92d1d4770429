// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Puts the messages of log files into the working database, while the log writer may be running.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace ombrel {

struct ImportOptions {
    std::string settingsFile;
    std::string schemaFile;
    std::vector<std::string> files;  ///< "-" is standard input
    std::optional<int> year;         ///< of the first line without one, in each file
    std::string host = "localhost";
    bool json = false;  ///< a line of JSON for each file on standard output in place of its summary
};

/// Imports one file after the other, also behind one that failed.
/// @return exit code of sysexits.h, that of the first failure; what went wrong, the progress (on a terminal) and a
///         summary of each file go to standard error
int importCommand(const ImportOptions& options);

}  // namespace ombrel
