// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the kernel says about ports. For sources that have one.
#pragma once

#include <sys/types.h>

#include "receiver/launcher/receiver_config.h"

namespace ombrel {

/// Whether a socket for IPv6 addresses can be bound here.
bool canUseIpv6() noexcept;

/// 0 when the port can be bound by one who does not share it, otherwise the errno. To be asked before syslog-ng
/// runs: it takes the port itself for a moment.
int tryToBind(const Source& source, bool ipv6) noexcept;

enum class PortHolder { kNobody, kProcess, kAnother };

/// Who has bound the port: nobody, nobody but this process (which may have a negative number: there is none), or
/// somebody else as well. Touches nothing.
PortHolder whoHolds(const Source& source, pid_t process);

/// Whether this process has bound the port.
bool hasBound(pid_t process, const Source& source);

/// What waits in the kernel for somebody to read it: bytes that have come, and connections not yet accepted.
/// 0 when nothing does, and for a source without a port.
unsigned long long waitingInKernel(const Source& source);

/// The largest receive buffer a program may ask for (net.core.rmem_max); 0 when it is not known.
long long largestReceiveBuffer();

}  // namespace ombrel
