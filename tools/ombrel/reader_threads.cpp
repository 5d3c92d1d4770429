// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/reader_threads.h"

#include <sched.h>

#include <algorithm>

namespace ombrel {

unsigned readerThreads() {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    const int count = ::sched_getaffinity(0, sizeof cores, &cores) == 0 ? CPU_COUNT(&cores) : 1;
    return static_cast<unsigned>(std::max(count, 1));
}

}  // namespace ombrel
