// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/readiness.h"

#include <systemd/sd-daemon.h>

#include <cerrno>

#include "linux/common/fd.h"

namespace ombrel {

int reportReady(int fd) {
    const int told = ::sd_notify(1, "READY=1");
    if (told > 0) return 0;
    if (told < 0) {
        errno = -told;
        return -1;
    }
    if (fd < 0) return 0;
    const Fd notify(fd);
    return ::write(notify.get(), "\n", 1) == 1 ? 0 : -1;
}

}  // namespace ombrel
