// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A message bus of the test's own, and on it a manager of units that answers as systemd does, or as it is told to.
// It runs in a thread; a test changes `units` only between two operations. Needs the program dbus-daemon.
#pragma once

#include <sys/types.h>

#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "linux/common/fd.h"
#include "tests/linux/child_process.h"

struct sd_bus;
struct sd_bus_message;

namespace ombrel::test {

struct NoMessageBus : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// dbus-daemon over a folder of its own; it ends with the object, or with the test.
class MessageBus {
public:
    MessageBus();  ///< throws NoMessageBus where it is not installed
    ~MessageBus() { end(); }
    MessageBus(const MessageBus&) = delete;
    MessageBus& operator=(const MessageBus&) = delete;

    [[nodiscard]] std::string address() const { return "unix:path=" + folder_.at("socket"); }
    void end();

private:
    TemporaryFolder folder_;
    pid_t pid_ = -1;
};

struct FakeUnit {
    std::string loadState = "loaded";
    std::string activeState = "inactive";
    bool canReload = true;
    std::string serviceResult = "success";
    std::string serviceType = "notify";
    std::string jobResult = "done";     ///< of the next jobs; empty: they never end
    std::string stateAfter = "active";  ///< of a job that starts it
    std::string stopResult = "done";
};

class FakeSystemd {
public:
    explicit FakeSystemd(MessageBus& bus);
    ~FakeSystemd();
    FakeSystemd(const FakeSystemd&) = delete;
    FakeSystemd& operator=(const FakeSystemd&) = delete;

    /// All calls but questions, as "StartUnit job.service"; forgotten once asked for.
    std::vector<std::string> takeCalls();

    std::map<std::string, FakeUnit> units;
    std::map<std::string, std::string> errors;  ///< by method: the name of the error that it answers
    bool endsBeforeAnswer = false;              ///< the end of a job is told before the call that made it returns
    std::string busEndsAt;                      ///< the method that ends the bus

    // For the functions that the bus calls.
    FakeUnit& unit(const std::string& name);
    bool refuses(sd_bus_message* call, const std::string& method, const std::string& words, int& answered);
    int answerJob(sd_bus_message* call, const std::string& unitName, const std::string& result);

private:
    void serve();
    int emitEnd(const std::string& job, const std::string& unitName, const std::string& result);

    struct BusClose {
        void operator()(sd_bus* bus) const noexcept;
    };

    MessageBus& daemon_;
    std::unique_ptr<sd_bus, BusClose> bus_;
    std::mutex lock_;
    std::vector<std::string> calls_;
    unsigned jobs_ = 0;
    Fd stop_;
    std::thread thread_;
};

}  // namespace ombrel::test
