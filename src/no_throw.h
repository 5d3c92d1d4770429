// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// No exception crosses the exported interface.
#pragma once

#include <exception>

namespace ombrel {

/// What `body` returns, or `failure` when memory ran out (the only thing that throws here).
template <typename Value, typename Body>
Value orFailure(Value failure, Body body) noexcept {
    try {
        return body();
    } catch (const std::exception&) {
        return failure;
    }
}

}  // namespace ombrel
