// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// No exception crosses the C interface: what is thrown inside ends as an entry in the error record.
#pragma once

#include <exception>

#include "linux/common/error_record.h"

namespace ombrel {

/// Runs `body`, which returns int; -1 when memory ran out (the only thing that throws here).
template <typename Body>
int guarded(Body body, const char* file = __builtin_FILE(), int line = __builtin_LINE()) noexcept {
    try {
        return body();
    } catch (const std::exception&) {
        return fail(kErrorOutOfMemory, file, line);
    }
}

}  // namespace ombrel
