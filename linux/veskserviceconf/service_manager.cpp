// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/veskserviceconf/service_manager.h"

#include <sys/stat.h>
#include <systemd/sd-daemon.h>

#include <cerrno>

#include "linux/common/error_record.h"
#include "linux/veskserviceconf/job_places.h"
#include "linux/veskserviceconf/s6_manager.h"
#include "linux/veskserviceconf/systemd_manager.h"

namespace ombrel {

std::unique_ptr<ServiceManager> makeServiceManager() {
    if (::sd_booted() > 0) return std::make_unique<SystemdManager>();
    struct stat info {};
    if (::stat(kScanFolder, &info) == 0 && S_ISDIR(info.st_mode)) return std::make_unique<S6Manager>(kScanFolder);
    errno = EOPNOTSUPP;
    (void)fail(fromErrno(errno));  // the caller hands the failure on
    return nullptr;
}

}  // namespace ombrel
