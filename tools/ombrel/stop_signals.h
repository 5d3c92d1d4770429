// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Ctrl-C and the like, for those who have something to put in order before they end.
#pragma once

namespace ombrel {

/// From now on SIGINT, SIGTERM and SIGHUP ask to end; what the parent had ignored stays so. The second one ends
/// the program at once. Calls that wait come back with EINTR. False with errno set.
bool takeStopSignals();
bool stopAsked();
/// Becomes readable when it is asked to end.
int stopDescriptor();

}  // namespace ombrel
