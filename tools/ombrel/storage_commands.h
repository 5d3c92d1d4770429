// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The verbs of `ombrel storage`. Each returns the exit code.
#pragma once

#include <string>

#include "tools/ombrel/context.h"

namespace ombrel {

int listShares(const Context& context);
int checkShareCommand(const Context& context, const std::string& name);
int checkSpace(const Context& context, const std::string& path, const std::string& size);
int moveDatabase(const Context& context, const std::string& from, const std::string& to, bool force);

}  // namespace ombrel
