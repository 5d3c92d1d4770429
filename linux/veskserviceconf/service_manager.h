// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the service jobs need of a machine's service manager. An object is used by one thread.
#pragma once

#include <memory>
#include <string>

#include "linux/common/job_name.h"

namespace ombrel {

/// Every operation returns 0, or -1 with the reason in the error record: kErrorNotFound for a job that the
/// manager does not know, kErrorTimeout after the bounded wait, kErrorProgramFailed for a job that ended
/// before it was ready. Names have passed isJobName().
class ServiceManager {
public:
    ServiceManager() = default;
    virtual ~ServiceManager() = default;
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    /// Returns when the job is ready. It is started again whenever it ends, also after the next boot. A job
    /// that cannot be started stays stopped.
    virtual int start(const std::string& job) = 0;
    /// Returns when the job is down, at once for one that is. It stays down, also after the next boot.
    virtual int stop(const std::string& job) = 0;
    /// Like start() for a stopped job. A running one that does not become ready again is tried further by the
    /// manager: a failed restart shall not be the end of a service.
    virtual int restart(const std::string& job) = 0;
    /// Tells a job that is ready to read its configuration again.
    virtual int reload(const std::string& job) = 0;
    virtual bool isRunning(const std::string& job) = 0;
};

/// The manager of this machine: systemd where the machine was booted by it, else s6 where it has a scan folder.
/// Null, with the reason in the error record, when there is none that we know.
std::unique_ptr<ServiceManager> makeServiceManager();

}  // namespace ombrel
