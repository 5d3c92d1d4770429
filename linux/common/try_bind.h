// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <cstdint>

namespace ombrel {

/// Whether a port can be bound now by one who does not share it; it is let go at once. Touches nobody who holds
/// it.
/// @param family  AF_INET or AF_INET6
/// @param type    SOCK_DGRAM or SOCK_STREAM
/// @return 0, otherwise the errno
int tryToBind(int family, int type, std::uint16_t port) noexcept;

}  // namespace ombrel
