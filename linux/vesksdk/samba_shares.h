// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The shares of this machine: Samba's own definitions, of which no daemon need run.
#pragma once

#include <vector>

#include "linux/vesksdk/share_definitions.h"

namespace ombrel {

/// Fills `shares`, those of smb.conf first. Runs testparm(1), at most 10 s.
/// @return 0, or -1 with the reason in the error record; `shares` is then as it was
int readShares(std::vector<Share>& shares);

}  // namespace ombrel
