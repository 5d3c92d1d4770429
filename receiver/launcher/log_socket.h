// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The socket file to which the programs of a machine log. A file of that name says nothing: who made it may be
// gone.
#pragma once

#include <string>

namespace ombrel {

enum class LogSocket {
    kFree,   ///< no such file
    kStale,  ///< nobody is bound to it any more
    kTaken,  ///< a living process is
    kOther,  ///< something else has the name
};

/// Connects to it and sends nothing.
LogSocket lookAtLogSocket(const std::string& path) noexcept;

/// Whatever nobody is bound to goes; the rest stays.
void removeStaleLogSocket(const std::string& path) noexcept;

}  // namespace ombrel
