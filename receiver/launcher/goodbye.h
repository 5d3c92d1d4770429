// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// How senders over TCP learn that a receiver is about to end, while it still reads what they have sent. Plain
// syslog has no answers: a sender whose connection is closed cannot know what had not been read (RFC 6587 section
// 5).
#pragma once

#include <cstdint>
#include <set>

#include "receiver/launcher/child.h"

namespace ombrel {

/// On the sockets that `process` has on these TCP ports: attempts to connect are passed over from now on, so that
/// they reach whoever listens there next, and on each connection the half to the sender is closed. A sender that
/// looks sees that, writes no more and closes; what it had written is read. May be called again for connections
/// that were just being made. Needs Linux 5.6 and the right to trace the process, which is its parent's as a rule;
/// does nothing without.
/// @return how many connections there are
int sayGoodbye(const Child& process, const std::set<std::uint16_t>& ports);

}  // namespace ombrel
