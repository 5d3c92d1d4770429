// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/veskserviceconf/systemd_manager.h"

#include <cerrno>

#include "linux/common/error_record.h"
#include "linux/veskserviceconf/systemd_bus.h"

namespace ombrel {

namespace {

constexpr const char* kUnit = "org.freedesktop.systemd1.Unit";
constexpr const char* kService = "org.freedesktop.systemd1.Service";

bool isUp(const std::string& state) {
    return state == "active" || state == "reloading";
}

bool isDown(const std::string& state) {
    return state == "inactive" || state == "failed";
}

int codeOfLoad(const std::string& loadState) {
    if (loadState == "loaded") return 0;
    if (loadState == "not-found") return kErrorNotFound;
    return loadState == "masked" ? fromErrno(EPERM) : kErrorProgramFailed;
}

int codeOfJob(const std::string& result) {
    if (result == "done") return 0;
    if (result == "timeout") return kErrorTimeout;
    return result == "canceled" ? fromErrno(ECANCELED) : kErrorProgramFailed;
}

}  // namespace

SystemdManager::SystemdManager(std::string busAddress, std::chrono::milliseconds longest)
    : busAddress_(std::move(busAddress)), longest_(longest) {
}

int SystemdManager::lookAt(SystemdBus& bus, const std::string& name, Unit& unit) {
    unit.name = name;
    std::string loaded;
    int code = bus.load(unit.name, unit.object);
    if (code == 0) code = bus.text(unit.object, kUnit, "LoadState", loaded);
    if (code == 0) code = codeOfLoad(loaded);
    if (code == 0) code = bus.text(unit.object, kUnit, "ActiveState", unit.state);
    return code;
}

int SystemdManager::find(SystemdBus& bus, const std::string& job, Unit& unit) const {
    int code = bus.open(busAddress_, deadlineIn(longest_));
    if (code == 0) code = lookAt(bus, job + ".service", unit);
    std::string type;
    if (code == 0) code = bus.text(unit.object, kService, "Type", type);
    if (code != 0 || type != "oneshot") return code;
    unit.service = unit.name;
    return lookAt(bus, job + ".timer", unit);
}

int SystemdManager::bringUp(SystemdBus& bus, const char* method, const Unit& unit) const {
    std::string result;
    int code = bus.runJob(method, unit.name, result);
    if (code != 0) return code;
    code = codeOfJob(result);
    std::string detail;
    if (code == kErrorProgramFailed) {
        // systemd says that the job failed, and only with the service why.
        if (bus.text(unit.object, kService, "Result", detail) == 0 && detail == "timeout") code = kErrorTimeout;
        return code;
    }
    // Done it is, too, for a unit whose conditions keep it from running.
    if (code == 0) code = bus.text(unit.object, kUnit, "ActiveState", detail);
    return code == 0 && isDown(detail) ? kErrorProgramFailed : code;
}

/// The failed start is what the caller has to know, so nothing is said of what fails here.
void SystemdManager::giveUp(SystemdBus& bus, const Unit& unit) const {
    bus.extend(deadlineIn(longest_));
    (void)bus.disable(unit.name);
    std::string ignored;
    (void)bus.runJob("StopUnit", unit.name, ignored);
    (void)bus.resetFailed(unit.name);
}

int SystemdManager::startFound(SystemdBus& bus, const Unit& unit) const {
    int code = bus.enable(unit.name);
    if (code != 0 || isUp(unit.state)) return code;
    code = bringUp(bus, "StartUnit", unit);
    if (code != 0) giveUp(bus, unit);
    return code;
}

int SystemdManager::start(const std::string& job) {
    SystemdBus bus;
    Unit unit;
    const int code = find(bus, job, unit);
    return resultOf(code != 0 ? code : startFound(bus, unit));
}

int SystemdManager::stop(const std::string& job) {
    SystemdBus bus;
    Unit unit;
    int code = find(bus, job, unit);
    if (code != 0) return fail(code);
    const int marked = bus.disable(unit.name);
    std::string result;
    code = bus.runJob("StopUnit", unit.name, result);
    if (code == 0) code = codeOfJob(result);
    if (code == 0 && !unit.service.empty()) {  // a run that is at work
        code = bus.runJob("StopUnit", unit.service, result);
        if (code == 0) code = codeOfJob(result);
    }
    return resultOf(code != 0 ? code : marked);
}

int SystemdManager::restart(const std::string& job) {
    SystemdBus bus;
    Unit unit;
    int code = find(bus, job, unit);
    if (code != 0) return fail(code);
    if (isDown(unit.state)) return resultOf(startFound(bus, unit));
    code = bus.enable(unit.name);
    return resultOf(code != 0 ? code : bringUp(bus, "RestartUnit", unit));
}

int SystemdManager::reload(const std::string& job) {
    SystemdBus bus;
    Unit unit;
    bool possible = false;
    int code = find(bus, job, unit);
    if (code == 0) code = bus.flag(unit.object, kUnit, "CanReload", possible);
    if (code != 0) return fail(code);
    if (!possible) return fail(fromErrno(EOPNOTSUPP));
    if (!isUp(unit.state)) return fail(fromErrno(ESRCH));
    std::string result;
    code = bus.runJob("ReloadUnit", unit.name, result);
    return resultOf(code != 0 ? code : codeOfJob(result));
}

bool SystemdManager::isRunning(const std::string& job) {
    SystemdBus bus;
    Unit unit;
    if (const int code = find(bus, job, unit); code != 0) (void)fail(code);  // "no" is the answer all the same
    return isUp(unit.state);
}

int SystemdManager::reloadDefinitions() {
    SystemdBus bus;
    const int code = bus.open(busAddress_, deadlineIn(longest_));
    return resultOf(code != 0 ? code : bus.reloadDefinitions());
}

}  // namespace ombrel
