// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The shares of this machine: Samba's own definitions, of which no daemon need run.
#pragma once

#include <vector>

#include "linux/vesksdk/share_definitions.h"

namespace ombrel {

enum class Reuse {
    kNothing,
    kJustRead,  ///< what this thread read in the last second will do, unless smb.conf has changed since
};

/// Fills `shares`, those of smb.conf first. Runs testparm(1), at most 10 s, when nothing can be reused: whoever
/// lists the shares looks up each of them next, and testparm takes longer the more there are.
/// @return 0, or -1 with the reason in the error record; `shares` is then as it was
int readShares(std::vector<Share>& shares, Reuse reuse);

}  // namespace ombrel
