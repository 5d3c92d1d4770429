// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/veskserviceconf/systemd_bus.h"

#include <systemd/sd-bus.h>

#include <cerrno>
#include <exception>
#include <string_view>

#include "linux/common/error_record.h"

namespace ombrel {

namespace {

constexpr const char* kSystemd = "org.freedesktop.systemd1";
constexpr const char* kObject = "/org/freedesktop/systemd1";
constexpr const char* kManager = "org.freedesktop.systemd1.Manager";

class BusError {
public:
    BusError() = default;
    ~BusError() { sd_bus_error_free(&error_); }
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;

    sd_bus_error* get() { return &error_; }
    [[nodiscard]] std::string_view name() const { return error_.name != nullptr ? error_.name : ""; }

private:
    sd_bus_error error_{};  // as SD_BUS_ERROR_NULL, which is C
};

/// `result` is the negative errno of a call of sd-bus.
int codeOf(int result) {
    if (result >= 0) return 0;
    if (result == -ENOMEM) return kErrorOutOfMemory;
    if (result == -ETIMEDOUT || result == -ETIME) return kErrorTimeout;
    return fromErrno(-result);
}

/// systemd's own errors have no number that others could know.
int codeOf(const BusError& error, int result) {
    const std::string_view name = error.name();
    if (name == "org.freedesktop.systemd1.NoSuchUnit") return kErrorNotFound;
    if (name == "org.freedesktop.systemd1.UnitMasked") return fromErrno(EPERM);
    if (name == "org.freedesktop.systemd1.BadUnitSetting" || name == "org.freedesktop.systemd1.LoadFailed")
        return kErrorProgramFailed;
    return codeOf(result);
}

std::uint64_t microsecondsUntil(Deadline deadline) {
    return static_cast<std::uint64_t>(millisecondsUntil(deadline)) * 1000;
}

int noteEnd(sd_bus_message* signal, void* results, sd_bus_error* /*error*/) {
    const char* job = nullptr;
    const char* result = nullptr;
    if (sd_bus_message_read(signal, "uoss", nullptr, &job, nullptr, &result) < 0) return 0;
    try {
        static_cast<std::map<std::string, std::string>*>(results)->insert_or_assign(job, result);
    } catch (const std::exception&) {
        return -ENOMEM;
    }
    return 0;
}

}  // namespace

void SystemdBus::BusClose::operator()(sd_bus* bus) const noexcept {
    sd_bus_close_unref(bus);
}

void SystemdBus::MessageFree::operator()(sd_bus_message* message) const noexcept {
    sd_bus_message_unref(message);
}

void SystemdBus::SlotFree::operator()(sd_bus_slot* slot) const noexcept {
    sd_bus_slot_unref(slot);
}

int SystemdBus::open(const std::string& address, Deadline deadline) {
    deadline_ = deadline;
    int code = codeOf(connect(address));
    // Greetings are exchanged here, since a call would wait for them without a bound of ours.
    while (code == 0 && sd_bus_is_ready(bus_.get()) == 0)
        code = wait();
    return code != 0 ? code : listen();
}

int SystemdBus::connect(const std::string& address) {
    sd_bus* bus = nullptr;
    if (address.empty()) {
        const int opened = sd_bus_open_system(&bus);
        bus_.reset(bus);
        return opened;
    }
    int result = sd_bus_new(&bus);
    bus_.reset(bus);
    if (result >= 0) result = sd_bus_set_address(bus, address.c_str());
    if (result >= 0) result = sd_bus_set_bus_client(bus, 1);
    return result >= 0 ? sd_bus_start(bus) : result;
}

int SystemdBus::listen() {
    sd_bus_slot* slot = nullptr;
    const int matched =
        sd_bus_match_signal(bus_.get(), &slot, kSystemd, kObject, kManager, "JobRemoved", noteEnd, &results_);
    ends_.reset(slot);
    if (matched < 0) return codeOf(matched);
    // Without a subscriber systemd sends no signals.
    Message call;
    Message reply;
    const int code = newCall("Subscribe", call);
    return code != 0 ? code : send(call, reply);
}

int SystemdBus::newCall(const char* method, Message& call) {
    sd_bus_message* message = nullptr;
    const int made = sd_bus_message_new_method_call(bus_.get(), &message, kSystemd, kObject, kManager, method);
    call.reset(message);
    return codeOf(made);
}

int SystemdBus::send(const Message& call, Message& reply) {
    if (millisecondsUntil(deadline_) == 0) return kErrorTimeout;
    sd_bus_message* answer = nullptr;
    BusError error;
    const int result = sd_bus_call(bus_.get(), call.get(), microsecondsUntil(deadline_), error.get(), &answer);
    reply.reset(answer);
    return codeOf(error, result);
}

/// Deals with what came, or waits for more.
int SystemdBus::wait() {
    const int processed = sd_bus_process(bus_.get(), nullptr);
    if (processed != 0) return codeOf(processed);
    if (millisecondsUntil(deadline_) == 0) return kErrorTimeout;
    const int waited = sd_bus_wait(bus_.get(), microsecondsUntil(deadline_));
    return waited == -EINTR ? 0 : codeOf(waited);
}

int SystemdBus::load(const std::string& unit, std::string& object) {
    Message call;
    Message reply;
    int code = newCall("LoadUnit", call);
    if (code == 0) code = codeOf(sd_bus_message_append(call.get(), "s", unit.c_str()));
    if (code == 0) code = send(call, reply);
    const char* found = nullptr;
    if (code == 0) code = codeOf(sd_bus_message_read(reply.get(), "o", &found));
    if (code == 0) object = found;
    return code;
}

int SystemdBus::propertyOf(const std::string& object, const char* interface, const char* property,
                           const char* type, Message& reply) {
    sd_bus_message* message = nullptr;
    const int made = sd_bus_message_new_method_call(bus_.get(), &message, kSystemd, object.c_str(),
                                                    "org.freedesktop.DBus.Properties", "Get");
    const Message call(message);
    int code = codeOf(made);
    if (code == 0) code = codeOf(sd_bus_message_append(call.get(), "ss", interface, property));
    if (code == 0) code = send(call, reply);
    if (code == 0) code = codeOf(sd_bus_message_enter_container(reply.get(), 'v', type));
    return code;
}

int SystemdBus::text(const std::string& object, const char* interface, const char* property, std::string& value) {
    Message reply;
    int code = propertyOf(object, interface, property, "s", reply);
    const char* read = nullptr;
    if (code == 0) code = codeOf(sd_bus_message_read(reply.get(), "s", &read));
    if (code == 0) value = read;
    return code;
}

int SystemdBus::flag(const std::string& object, const char* interface, const char* property, bool& value) {
    Message reply;
    int code = propertyOf(object, interface, property, "b", reply);
    int read = 0;
    if (code == 0) code = codeOf(sd_bus_message_read(reply.get(), "b", &read));
    if (code == 0) value = read != 0;
    return code;
}

int SystemdBus::runJob(const char* method, const std::string& unit, std::string& result) {
    results_.clear();
    Message call;
    Message reply;
    int code = newCall(method, call);
    if (code == 0) code = codeOf(sd_bus_message_append(call.get(), "ss", unit.c_str(), "replace"));
    if (code == 0) code = send(call, reply);
    const char* job = nullptr;
    if (code == 0) code = codeOf(sd_bus_message_read(reply.get(), "o", &job));
    return code != 0 ? code : awaitEnd(job, result);
}

/// The signal of a short job may come before the answer that names it: sd-bus keeps it until it is asked for.
int SystemdBus::awaitEnd(const std::string& job, std::string& result) {
    auto end = results_.find(job);
    for (; end == results_.end(); end = results_.find(job)) {
        if (const int code = wait(); code != 0) return code;
    }
    result = end->second;
    return 0;
}

int SystemdBus::enable(const std::string& unit) {
    Message call;
    Message reply;
    int code = newCall("EnableUnitFiles", call);
    // For good, not until the next boot only; and no links of others are written over.
    if (code == 0) code = codeOf(sd_bus_message_append(call.get(), "asbb", 1, unit.c_str(), 0, 0));
    return code != 0 ? code : send(call, reply);
}

int SystemdBus::disable(const std::string& unit) {
    Message call;
    Message reply;
    int code = newCall("DisableUnitFiles", call);
    if (code == 0) code = codeOf(sd_bus_message_append(call.get(), "asb", 1, unit.c_str(), 0));
    return code != 0 ? code : send(call, reply);
}

int SystemdBus::resetFailed(const std::string& unit) {
    Message call;
    Message reply;
    int code = newCall("ResetFailedUnit", call);
    if (code == 0) code = codeOf(sd_bus_message_append(call.get(), "s", unit.c_str()));
    return code != 0 ? code : send(call, reply);
}

int SystemdBus::reloadDefinitions() {
    Message call;
    Message reply;
    const int code = newCall("Reload", call);
    return code != 0 ? code : send(call, reply);
}

}  // namespace ombrel
