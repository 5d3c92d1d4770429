// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Why a database could not be read.
#pragma once

#include <string>

namespace ombrel {

/// "PATH: WHY", by the error record and the rights to the file.
std::string readError(const std::string& path);

}  // namespace ombrel
