// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The processes that hold sockets, and which of them are the package's own.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "linux/common/socket_table.h"

namespace ombrel {

struct Holder {
    int processId = 0;  ///< 0: none that can be looked at
    std::string program;
};

/// Tells programs of the package from those of others.
class OwnPrograms {
public:
    /// @param packageFolder  where the package is installed; what the links in its sbin/ lead to is its own too
    explicit OwnPrograms(const std::string& packageFolder);

    /// @param program  what /proc/PID/exe says
    /// @param words    the command line; the receivers are syslog-ng with a control socket of the package
    [[nodiscard]] bool owns(const std::string& program, const std::vector<std::string>& words) const;

private:
    std::string folder_;          ///< as it is named
    std::string resolvedFolder_;  ///< as the kernel names it
    std::set<std::string> programs_;
};

/// Somebody else's hold on these sockets: of each socket that no program of the package holds, one holder.
/// A process that cannot be looked at is not the package's.
/// @param processes  /proc
std::vector<Holder> foreignHolders(const std::string& processes, const std::vector<Inode>& sockets,
                                   const OwnPrograms& own);

/// The sockets that programs of the package have open.
std::set<Inode> socketsOfOwn(const std::string& processes, const OwnPrograms& own);

}  // namespace ombrel
