// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Beats at equal distances, until the process is asked to end (SIGTERM or SIGINT). One for a process.
#pragma once

#include "linux/common/fd.h"

namespace ombrel {

class Metronome {
public:
    Metronome();
    ~Metronome();
    Metronome(const Metronome&) = delete;
    Metronome& operator=(const Metronome&) = delete;

    /// From now on signals are heeded. With `readyFd` (negative: none) readiness is told, see readiness.h. False
    /// with errno set.
    bool begin(int seconds, int readyFd);
    [[nodiscard]] bool isAskedToEnd() const;
    /// Waits for the next beat; those that have passed meanwhile are one. False when the process is to end.
    bool await();

private:
    Fd timer_;
    Fd ending_;
};

}  // namespace ombrel
