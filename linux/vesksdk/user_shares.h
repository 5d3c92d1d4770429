// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Shares that users make themselves (net usershare): one file each in a folder that smb.conf names.
// They are taken only where Samba takes them, since logs are written to their folder by the system.
#pragma once

#include <string>
#include <vector>

#include "linux/vesksdk/share_definitions.h"

namespace ombrel {

/// The user shares that the server parameters allow, by name; none where the folder is missing or unsafe.
std::vector<Share> userShares(const ShareDefinitions& definitions);

}  // namespace ombrel
