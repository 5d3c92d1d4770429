// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// One run of the schedule: what is due is archived, the time is recorded in the settings, and what the retention
// no longer keeps is removed.
#pragma once

#include <functional>

#include "tools/ombrel/context.h"

namespace ombrel {

/// For whoever holds the turn. Tells on standard output what it did; the exit code: 0, 1 when something failed, 77
/// or 78 when settings cannot be read.
/// @param goesOn  asked before each database and each removal; without it nothing ends the run
int runSchedule(const Context& context, const std::function<bool()>& goesOn = {});

/// Tells what it would do, and needs no turn.
int previewSchedule(const Context& context);

}  // namespace ombrel
