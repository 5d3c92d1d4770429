// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include <exception>

#include "linux/common/error_record.h"
#include "linux/veskserviceconf/service_manager.h"
#include "platform/veskserviceconf.h"

using namespace ombrel;

namespace {

/// `action` on the manager of this machine, -1 when there is none.
template <typename Action>
int withManager(const char* job, Action action) {
    if (!isJobName(job)) return fail(kErrorInvalidArgument);
    try {
        const std::unique_ptr<ServiceManager> manager = makeServiceManager();
        return manager ? action(*manager) : -1;
    } catch (const std::exception&) {
        return fail(kErrorOutOfMemory);
    }
}

}  // namespace

extern "C" {

int VLIBServicectlJobStart(const char* job) {
    return withManager(job, [job](ServiceManager& manager) { return manager.start(job); });
}

int VLIBServicectlJobStop(const char* job) {
    return withManager(job, [job](ServiceManager& manager) { return manager.stop(job); });
}

int VLIBServicectlJobReload(const char* job) {
    return withManager(job, [job](ServiceManager& manager) { return manager.reload(job); });
}

int VLIBServicectlRestart(const char* job, int /*flags*/) {
    return withManager(job, [job](ServiceManager& manager) { return manager.restart(job); });
}

// Whoever cannot be asked is not running: callers take any value but 0 for yes.
int VLIBServicectlIsJobRunning(const char* job, int /*flags*/) {
    return withManager(job, [job](ServiceManager& manager) { return manager.isRunning(job) ? 1 : 0; }) > 0 ? 1 : 0;
}

// A system service is a job of the same manager. There is nothing that the flags could change.
int VLIBServiceStart(const char* service, int /*flags*/) {
    return VLIBServicectlJobStart(service);
}

int VLIBServiceStop(const char* service, int /*flags*/) {
    return VLIBServicectlJobStop(service);
}

}  // extern "C"
