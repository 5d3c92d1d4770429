// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Shows on a terminal that a call which does not come back for more than a second is at work, and how far it has
// come where that can be asked meanwhile. Elsewhere it does nothing.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "tools/ombrel/terminal.h"

namespace ombrel {

class Waiting {
public:
    struct Extent {
        unsigned long long done = 0;   ///< bytes
        unsigned long long total = 0;  ///< 0: not known
    };
    /// `extent` is asked on another thread, ten times a second; it must not use what the call uses.
    Waiting(const Terminal& terminal, std::string what, std::function<Extent()> extent = nullptr);
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;
    /// Takes the line away.
    ~Waiting();

private:
    void show(const Terminal& terminal, const std::string& what, const std::function<Extent()>& extent);

    std::mutex mutex_;
    std::condition_variable changed_;
    bool isOver_ = false;
    std::thread thread_;
};

}  // namespace ombrel
