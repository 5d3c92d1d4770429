// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Follows the event file.
#pragma once

#include <functional>
#include <string_view>

#include "tools/ombrel-notify/event_follower.h"

namespace ombrel {

/// Hands over each line that comes, from where the follower stands, until the sink wants no more or nobody reads
/// standard output any more. Waits without an end in between.
/// @return 0, or the errno why the file cannot be read or watched
int followEvents(EventFollower& follower, const std::function<bool(std::string_view line)>& sink);

}  // namespace ombrel
