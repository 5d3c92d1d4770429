// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Files and the clock, asked of the machine.
#pragma once

#include <optional>
#include <string>

namespace ombrel {

struct FileFacts {
    enum class Kind { kFile, kFolder, kOther };
    Kind kind = Kind::kOther;
    unsigned mode = 0;      ///< permission bits
    unsigned owner = 0;     ///< user id
    bool isOurs = false;    ///< the user who asks owns it, or is root
    bool mayRead = false;   ///< by that user; of a folder: and go into it
    bool mayWrite = false;  ///< likewise
};
/// What a path leads to. Nothing, with errno set, when there is none or it cannot be looked at.
std::optional<FileFacts> fileFacts(const std::string& path);

/// Whether the user who asks may do everything.
bool isRoot();

/// Whether something keeps the clock in step with others (adjtimex(2)); nothing when it cannot be told.
std::optional<bool> isClockSynchronised();

}  // namespace ombrel
