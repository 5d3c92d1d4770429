// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tests/linux/fake_systemd.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace ombrel::test {

namespace {

constexpr const char* kDaemon = "/usr/bin/dbus-daemon";
constexpr const char* kName = "org.freedesktop.systemd1";
constexpr const char* kObject = "/org/freedesktop/systemd1";
constexpr const char* kUnits = "/org/freedesktop/systemd1/unit";
constexpr const char* kManager = "org.freedesktop.systemd1.Manager";

FakeSystemd& self(void* pointer) {
    return *static_cast<FakeSystemd*>(pointer);
}

std::string firstWord(sd_bus_message* call) {
    const char* word = nullptr;
    if (sd_bus_message_read(call, "s", &word) < 0) throw std::runtime_error("a call without a unit");
    return word;
}

int load(sd_bus_message* call, void* fake, sd_bus_error* /*error*/) {
    const std::string name = firstWord(call);
    int answered = 0;
    if (self(fake).refuses(call, "LoadUnit", "", answered)) return answered;
    (void)self(fake).unit(name);
    char* path = nullptr;
    if (sd_bus_path_encode(kUnits, name.c_str(), &path) < 0) return -ENOMEM;
    const std::unique_ptr<char, decltype(&std::free)> owned(path, std::free);
    return sd_bus_reply_method_return(call, "o", path);
}

int start(sd_bus_message* call, void* fake, sd_bus_error* /*error*/) {
    const std::string name = firstWord(call);
    int answered = 0;
    if (self(fake).refuses(call, sd_bus_message_get_member(call), " " + name, answered)) return answered;
    FakeUnit& unit = self(fake).unit(name);
    unit.activeState = unit.stateAfter;
    return self(fake).answerJob(call, name, unit.jobResult);
}

int stop(sd_bus_message* call, void* fake, sd_bus_error* /*error*/) {
    const std::string name = firstWord(call);
    int answered = 0;
    if (self(fake).refuses(call, "StopUnit", " " + name, answered)) return answered;
    FakeUnit& unit = self(fake).unit(name);
    unit.activeState = "inactive";
    return self(fake).answerJob(call, name, unit.stopResult);
}

int reload(sd_bus_message* call, void* fake, sd_bus_error* /*error*/) {
    const std::string name = firstWord(call);
    int answered = 0;
    if (self(fake).refuses(call, "ReloadUnit", " " + name, answered)) return answered;
    return self(fake).answerJob(call, name, self(fake).unit(name).jobResult);
}

int switchFiles(sd_bus_message* call, void* fake, sd_bus_error* /*error*/) {
    const std::string method = sd_bus_message_get_member(call);
    (void)sd_bus_message_enter_container(call, 'a', "s");
    const std::string name = firstWord(call);
    int answered = 0;
    if (self(fake).refuses(call, method, " " + name, answered)) return answered;
    if (method == "EnableUnitFiles") return sd_bus_reply_method_return(call, "ba(sss)", 1, 0);
    return sd_bus_reply_method_return(call, "a(sss)", 0);
}

int simple(sd_bus_message* call, void* fake, sd_bus_error* /*error*/) {
    const std::string method = sd_bus_message_get_member(call);
    const std::string words = method == "ResetFailedUnit" ? " " + firstWord(call) : "";
    int answered = 0;
    if (self(fake).refuses(call, method, words, answered)) return answered;
    return sd_bus_reply_method_return(call, "");
}

int findUnit(sd_bus* /*bus*/, const char* path, const char* /*interface*/, void* fake, void** found,
             sd_bus_error* /*error*/) {
    char* name = nullptr;
    if (sd_bus_path_decode(path, kUnits, &name) <= 0) return 0;
    const std::unique_ptr<char, decltype(&std::free)> owned(name, std::free);
    *found = &self(fake).unit(name);
    return 1;
}

int text(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* property,
         sd_bus_message* reply, void* pointer, sd_bus_error* /*error*/) {
    const auto* unit = static_cast<const FakeUnit*>(pointer);
    const std::string& value = std::strcmp(property, "LoadState") == 0     ? unit->loadState
                               : std::strcmp(property, "ActiveState") == 0 ? unit->activeState
                               : std::strcmp(property, "Type") == 0        ? unit->serviceType
                                                                           : unit->serviceResult;
    return sd_bus_message_append(reply, "s", value.c_str());
}

int flag(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
         sd_bus_message* reply, void* pointer, sd_bus_error* /*error*/) {
    return sd_bus_message_append(reply, "b", static_cast<const FakeUnit*>(pointer)->canReload ? 1 : 0);
}

const std::array<sd_bus_vtable, 13> kManagerTable{
    {SD_BUS_VTABLE_START(0), SD_BUS_METHOD("LoadUnit", "s", "o", load, SD_BUS_VTABLE_UNPRIVILEGED),
     SD_BUS_METHOD("StartUnit", "ss", "o", start, SD_BUS_VTABLE_UNPRIVILEGED),
     SD_BUS_METHOD("RestartUnit", "ss", "o", start, SD_BUS_VTABLE_UNPRIVILEGED),
     SD_BUS_METHOD("StopUnit", "ss", "o", stop, SD_BUS_VTABLE_UNPRIVILEGED),
     SD_BUS_METHOD("ReloadUnit", "ss", "o", reload, SD_BUS_VTABLE_UNPRIVILEGED),
     SD_BUS_METHOD("EnableUnitFiles", "asbb", "ba(sss)", switchFiles, SD_BUS_VTABLE_UNPRIVILEGED),
     SD_BUS_METHOD("DisableUnitFiles", "asb", "a(sss)", switchFiles, SD_BUS_VTABLE_UNPRIVILEGED),
     SD_BUS_METHOD("ResetFailedUnit", "s", "", simple, SD_BUS_VTABLE_UNPRIVILEGED),
     SD_BUS_METHOD("Subscribe", "", "", simple, SD_BUS_VTABLE_UNPRIVILEGED),
     SD_BUS_METHOD("Reload", "", "", simple, SD_BUS_VTABLE_UNPRIVILEGED), SD_BUS_SIGNAL("JobRemoved", "uoss", 0),
     SD_BUS_VTABLE_END}};

const std::array<sd_bus_vtable, 5> kUnitTable{{SD_BUS_VTABLE_START(0),
                                               SD_BUS_PROPERTY("LoadState", "s", text, 0, 0),
                                               SD_BUS_PROPERTY("ActiveState", "s", text, 0, 0),
                                               SD_BUS_PROPERTY("CanReload", "b", flag, 0, 0), SD_BUS_VTABLE_END}};

const std::array<sd_bus_vtable, 4> kServiceTable{{SD_BUS_VTABLE_START(0),
                                                  SD_BUS_PROPERTY("Result", "s", text, 0, 0),
                                                  SD_BUS_PROPERTY("Type", "s", text, 0, 0), SD_BUS_VTABLE_END}};

void need(int result, const char* what) {
    if (result < 0) throw std::runtime_error(std::string(what) + ": " + std::strerror(-result));
}

[[noreturn]] void runDaemon(const std::string& configuration, int ready) {
    (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const Fd nothing(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    (void)::dup2(nothing.get(), STDERR_FILENO);  // it complains of limits that matter to nobody here
    (void)::dup2(ready, 3);
    (void)::execl(kDaemon, "dbus-daemon", ("--config-file=" + configuration).c_str(), "--nofork",
                  "--print-address=3", nullptr);
    ::_exit(72);
}

}  // namespace

MessageBus::MessageBus() {
    if (::access(kDaemon, X_OK) != 0) throw NoMessageBus("dbus-daemon is not installed");
    const std::string configuration = folder_.at("bus.conf");
    std::ofstream(configuration) << "<busconfig><type>session</type><listen>" << address()
                                 << "</listen><auth>EXTERNAL</auth><policy context='default'>"
                                    "<allow user='*'/><allow send_destination='*' eavesdrop='true'/>"
                                    "<allow eavesdrop='true'/><allow own='*'/></policy></busconfig>\n";
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    const Fd readEnd(ends[0]);
    Fd writeEnd(ends[1]);
    pid_ = ::fork();
    if (pid_ == 0) runDaemon(configuration, writeEnd.get());
    writeEnd.reset();
    pollfd wait{readEnd.get(), POLLIN, 0};
    char letter = 0;
    if (::poll(&wait, 1, 10000) == 1 && ::read(readEnd.get(), &letter, 1) == 1) return;
    end();
    throw std::runtime_error("dbus-daemon does not come up");
}

void MessageBus::end() {
    if (pid_ <= 0) return;
    (void)::kill(pid_, SIGKILL);
    (void)::waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

void FakeSystemd::BusClose::operator()(sd_bus* bus) const noexcept {
    sd_bus_flush_close_unref(bus);
}

FakeSystemd::FakeSystemd(MessageBus& bus) : daemon_(bus), stop_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    sd_bus* made = nullptr;
    need(sd_bus_new(&made), "a bus");
    bus_.reset(made);
    need(sd_bus_set_address(made, bus.address().c_str()), "its address");
    need(sd_bus_set_bus_client(made, 1), "a client");
    need(sd_bus_start(made), "the start");
    need(sd_bus_add_object_vtable(made, nullptr, kObject, kManager, kManagerTable.data(), this), "the manager");
    need(sd_bus_add_fallback_vtable(made, nullptr, kUnits, "org.freedesktop.systemd1.Unit", kUnitTable.data(),
                                    findUnit, this),
         "the units");
    need(sd_bus_add_fallback_vtable(made, nullptr, kUnits, "org.freedesktop.systemd1.Service",
                                    kServiceTable.data(), findUnit, this),
         "the services");
    need(sd_bus_request_name(made, kName, 0), "the name");
    thread_ = std::thread([this] { serve(); });
}

FakeSystemd::~FakeSystemd() {
    const std::uint64_t one = 1;
    (void)!::write(stop_.get(), &one, sizeof one);
    thread_.join();
}

void FakeSystemd::serve() {
    for (;;) {
        const int processed = sd_bus_process(bus_.get(), nullptr);
        if (processed < 0) return;  // the bus has ended
        if (processed > 0) continue;
        std::array<pollfd, 2> waits{pollfd{stop_.get(), POLLIN, 0}, pollfd{sd_bus_get_fd(bus_.get()), 0, 0}};
        waits[1].events = static_cast<short>(sd_bus_get_events(bus_.get()));
        if (::poll(waits.data(), waits.size(), 60000) < 0 || waits[0].revents != 0) return;
    }
}

std::vector<std::string> FakeSystemd::takeCalls() {
    const std::lock_guard<std::mutex> guard(lock_);
    return std::move(calls_);
}

/// systemd, too, knows every unit that it was asked for, as one that was not found.
FakeUnit& FakeSystemd::unit(const std::string& name) {
    const auto [place, isNew] = units.try_emplace(name);
    if (isNew) place->second.loadState = "not-found";
    return place->second;
}

bool FakeSystemd::refuses(sd_bus_message* call, const std::string& method, const std::string& words,
                          int& answered) {
    const std::lock_guard<std::mutex> guard(lock_);
    if (method != "LoadUnit" && method != "Subscribe") calls_.push_back(method + words);
    if (method == busEndsAt) daemon_.end();
    const auto error = errors.find(method);
    if (error == errors.end()) return false;
    answered = sd_bus_reply_method_errorf(call, error->second.c_str(), "as the test wants it");
    return true;
}

int FakeSystemd::answerJob(sd_bus_message* call, const std::string& unitName, const std::string& result) {
    const std::string job = std::string(kObject) + "/job/" + std::to_string(++jobs_);
    // There are other jobs on a machine.
    int done = emitEnd(std::string(kObject) + "/job/" + std::to_string(jobs_ + 1000), "other.service", "failed");
    if (done >= 0 && endsBeforeAnswer) done = emitEnd(job, unitName, result);
    if (done >= 0) done = sd_bus_reply_method_return(call, "o", job.c_str());
    if (done >= 0 && !endsBeforeAnswer) done = emitEnd(job, unitName, result);
    return done;
}

int FakeSystemd::emitEnd(const std::string& job, const std::string& unitName, const std::string& result) {
    if (result.empty()) return 0;
    return sd_bus_emit_signal(bus_.get(), kObject, kManager, "JobRemoved", "uoss", jobs_, job.c_str(),
                              unitName.c_str(), result.c_str());
}

}  // namespace ombrel::test
