// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/worker_count.h"

#include <algorithm>
#include <thread>

namespace ombrel {

unsigned workerCount() {
    constexpr unsigned kMost = 8;
    return std::clamp(std::thread::hardware_concurrency(), 1U, kMost);
}

}  // namespace ombrel
