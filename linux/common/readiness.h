// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// How a job tells its service manager that it is ready.
#pragma once

namespace ombrel {

/// Where $NOTIFY_SOCKET names a socket, as with systemd, READY=1 goes there (sd_notify(3)) and the variable is
/// taken out of the environment, so that no child reports in the job's name; `fd` is not touched then, since
/// whoever sets the variable passes no descriptor and the number may have become another file's. Otherwise a line
/// break is written to `fd`, which is closed, as s6 expects it; with a negative one nothing is told.
/// @return 0; -1 with errno
int reportReady(int fd);

}  // namespace ombrel
