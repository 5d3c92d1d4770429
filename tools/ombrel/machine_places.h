// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Where the machine keeps what the commands look at beside settings and databases.
#pragma once

#include <string>

namespace ombrel {

/// The event file; the one before it has ".1" behind its name.
std::string eventFile();

}  // namespace ombrel
