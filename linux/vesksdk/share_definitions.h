// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Samba's share definitions as text: what testparm(1) prints and what a user share's file holds. Pure.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace ombrel {

struct Share {
    std::string name;
    std::string path;
};

struct ShareDefinitions {
    std::map<std::string, std::string, std::less<>> global;  ///< parameters of the whole server
    std::vector<Share> shares;                               ///< those that have a folder, in their order
};

/// Reads what `testparm -s -v` prints. Left out is what stands for no folder of its own: printers, home folders,
/// printer drivers, IPC, shares that are not available or whose path depends on who asks (%U, ...).
ShareDefinitions parseDefinitions(std::string_view text);

/// Reads the file of a user share, by smb.conf(5) named like the share in lower case; it may state the
/// share's name as its owner writes it. A share without a name or path is none.
Share parseUserShare(std::string_view fileName, std::string_view text);

/// Names are compared as Samba does: without regard to case, in any alphabet.
bool sameShareName(std::string_view a, std::string_view b);

}  // namespace ombrel
