// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <string>

#include "tools/ombrel/retention_policy.h"

namespace ombrel {

/// Enters the event that an archive was removed. One that cannot be kept stops nothing.
void enterArchiveRemoved(const std::string& path, RemovalReason reason, unsigned long long bytes);

}  // namespace ombrel
