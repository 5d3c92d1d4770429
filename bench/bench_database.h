// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Log databases to measure with. Failures end the program: a measurement has nothing to go on with.
#pragma once

#include <string>

namespace ombrel::bench {

/// Makes a version-2 log database of `rows` messages from 40 hosts, a second apart for each thousand; the lines
/// are of about 190 bytes.
void makeDatabase(const std::string& path, long rows);

/// Makes it where it is missing. Databases of millions of rows are worth keeping between measurements.
void keepDatabase(const std::string& path, long rows);

}  // namespace ombrel::bench
