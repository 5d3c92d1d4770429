// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What a code of the error record says, for people.
#pragma once

#include <string>

namespace ombrel {

/// Empty when the code says nothing by itself.
std::string errorText(int code);

}  // namespace ombrel
