// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <set>
#include <string>

#include "linux/common/socket_table.h"

namespace ombrel {

/// The sockets that a process has open; none of one that has ended or must not be looked at.
/// @param process  its folder, as "/proc/1"
std::set<Inode> socketsOfProcess(const std::string& process);

}  // namespace ombrel
