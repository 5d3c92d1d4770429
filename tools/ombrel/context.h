// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What every command is told beside its own words.
#pragma once

#include "tools/ombrel/terminal.h"

namespace ombrel {

struct Context {
    bool json = false;  ///< the answer is JSON (RFC 8259): one document a line
    Terminal out;       ///< standard output
    Terminal err;       ///< standard error
};

}  // namespace ombrel
