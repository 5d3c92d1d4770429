// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <string>

namespace ombrel {

struct DatabaseCheck {
    enum class State { kGood, kDamaged, kUnknown };
    State state = State::kGood;
    std::string what;  ///< what is wrong, or why it cannot be told; may hold any bytes

    [[nodiscard]] bool isGood() const { return state == State::kGood; }
};

/// Whether a database file is whole: SQLite's quick_check, which reads all of it. What is written to it at the
/// same time waits, as for any other reader; the file itself is not changed.
DatabaseCheck checkDatabase(const std::string& path);

}  // namespace ombrel
