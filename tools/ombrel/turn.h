// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Whoever changes settings, rules or archives takes turns: neither the library nor the platform beneath it lets
// two changes of the same thing run side by side.
#pragma once

#include <string>

#include "linux/common/fd.h"

namespace ombrel {

class Turn {
public:
    /// Waits at most that long for the others.
    static constexpr int kLongestWaitSeconds = 120;

    enum class For {
        kService,  ///< its settings, rules, jobs and databases: who may not write its settings is refused
        kFiles,    ///< files that the user names
    };
    /// Takes the turn, or says what is wrong; the exit code, 0 when it is ours. It ends with this object, and with
    /// the process however that ends.
    int take(For what = For::kService);

    enum class Try {
        kTaken,
        kBusy,    ///< somebody else has it
        kFailed,  ///< which has been told
    };
    /// Takes the turn for the service when nobody has it, and does not wait.
    Try tryTake();

private:
    int open(For what);

    Fd lock_;
};

}  // namespace ombrel
