// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Ctrl-C and the like, for commands that have to clean up before they end.
#pragma once

#include <functional>
#include <memory>

namespace ombrel {

class Interrupt {
public:
    /// Takes SIGINT, SIGTERM and SIGHUP over, but for those that are ignored, and calls `onSignal` from a thread
    /// of its own when the first of them comes; the second one ends the program at once. To be made before any
    /// other thread, which would get them instead.
    explicit Interrupt(std::function<void()> onSignal);
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    /// The signal that came, or 0.
    [[nodiscard]] int signal() const;

private:
    struct Watch;
    std::unique_ptr<Watch> watch_;
};

}  // namespace ombrel
