// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A conversation with systemd over D-Bus (org.freedesktop.systemd1(5)): units, their properties, and jobs that
// are waited for. Used by one thread. Every operation takes a code of error_record.h from what went wrong, 0 for
// success, and is over at the deadline.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "linux/common/child_process.h"

struct sd_bus;
struct sd_bus_message;
struct sd_bus_slot;

namespace ombrel {

class SystemdBus {
public:
    SystemdBus() = default;
    ~SystemdBus() = default;
    SystemdBus(const SystemdBus&) = delete;
    SystemdBus& operator=(const SystemdBus&) = delete;

    /// Connects, and listens to the ends of all jobs before any is asked for.
    /// @param address  of the bus; the system's own when empty
    int open(const std::string& address, Deadline deadline);
    void extend(Deadline deadline) { deadline_ = deadline; }

    /// Has the unit loaded. The object that it is on the bus.
    int load(const std::string& unit, std::string& object);
    int text(const std::string& object, const char* interface, const char* property, std::string& value);
    int flag(const std::string& object, const char* interface, const char* property, bool& value);

    /// Has a job done ("StartUnit", ...) and waits for its end.
    /// @param result  of the job, as systemd names it: "done", "failed", "timeout", "canceled", ...
    int runJob(const char* method, const std::string& unit, std::string& result);
    /// Whether the unit is started at boot.
    int enable(const std::string& unit);
    int disable(const std::string& unit);
    /// Forgets that the unit has failed.
    int resetFailed(const std::string& unit);
    /// Has all unit files read again.
    int reloadDefinitions();

private:
    struct BusClose {
        void operator()(sd_bus* bus) const noexcept;
    };
    struct MessageFree {
        void operator()(sd_bus_message* message) const noexcept;
    };
    struct SlotFree {
        void operator()(sd_bus_slot* slot) const noexcept;
    };
    using Message = std::unique_ptr<sd_bus_message, MessageFree>;

    int connect(const std::string& address);
    int listen();
    int newCall(const char* method, Message& call);
    int send(const Message& call, Message& reply);
    int wait();
    int awaitEnd(const std::string& job, std::string& result);
    int propertyOf(const std::string& object, const char* interface, const char* property, const char* type,
                   Message& reply);

    Deadline deadline_;
    std::unique_ptr<sd_bus, BusClose> bus_;
    std::unique_ptr<sd_bus_slot, SlotFree> ends_;
    std::map<std::string, std::string> results_;  ///< of the jobs that ended so far, by their objects
};

}  // namespace ombrel
