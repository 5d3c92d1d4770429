// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "receiver/launcher/child.h"

namespace ombrel {

/// The whole answer of a syslog-ng to a command such as "STATS" or "RELOAD"; nothing when there is none by the
/// deadline. A reload answers once it is done, which waits for the answer to a batch on its way.
std::optional<std::string> askControlSocket(const std::string& path, std::string_view command, Deadline deadline);

/// Whether a syslog-ng answers on its control socket within `timeout`.
bool answersOnControlSocket(const std::string& path, std::chrono::milliseconds timeout);

/// Lines that syslog-ng has taken for the destination and has no answer for yet: in its queue or in a batch on
/// its way. From an answer to "STATS"; a destination that is not in there holds none. Lines that came out of a
/// queue file are not counted.
long long heldLines(std::string_view stats, std::string_view destination);

}  // namespace ombrel
