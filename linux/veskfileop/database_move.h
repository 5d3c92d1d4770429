// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Moving a log database that a program is writing into, between two of its transactions.
#pragma once

#include <chrono>
#include <string>

namespace ombrel {

constexpr std::chrono::seconds kMoveTimeout{10};

enum class MoveResult {
    kMoved,
    kFailed,       ///< `code` says why; the source is as it was and `to` does not exist
    kNotDatabase,  ///< no SQLite database, or one too damaged to be locked
};

struct DatabaseMove {
    MoveResult result;
    int code;  ///< of the error record
};

/// Call with the turnstile held. Waits for SQLite's lock at most until `deadline`.
DatabaseMove moveDatabase(const std::string& from, const std::string& to,
                          std::chrono::steady_clock::time_point deadline);

}  // namespace ombrel
