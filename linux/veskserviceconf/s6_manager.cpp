// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/veskserviceconf/s6_manager.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <sstream>
#include <string_view>

#include "linux/common/error_record.h"
#include "linux/common/fd.h"
#include "linux/veskserviceconf/job_places.h"

namespace ombrel {

namespace {

constexpr const char* kControl = "/usr/bin/s6-svc";
constexpr const char* kWait = "/usr/bin/s6-svwait";
constexpr const char* kListen = "/usr/bin/s6-ftrig-listen1";
constexpr const char* kStatus = "/usr/bin/s6-svstat";
constexpr int kExitTimedOut = 99;  // of s6-svc and s6-svwait

// The programs watch the time themselves and say more than a program that we kill; ours is the second net.
constexpr std::chrono::milliseconds kGrace{1000};
constexpr std::chrono::milliseconds kShort{5000};  // for programs that wait for nothing

std::string remaining(Deadline deadline) {
    return std::to_string(std::max(1, millisecondsUntil(deadline)));  // 0 would mean for ever
}

/// `down` is read by the supervisor when it starts, not before, so it may change at any time.
int removeDownFile(const std::string& folder) {
    if (::unlink((folder + "/down").c_str()) == 0 || errno == ENOENT) return 0;
    return fromErrno(errno);
}

int makeDownFile(const std::string& folder) {
    const Fd file(::open((folder + "/down").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    return file ? 0 : fromErrno(errno);
}

int codeOf(const ChildProcess& program) {
    if (program.error() != 0) return program.error();
    if (program.exitCode() == 0) return 0;
    return program.exitCode() == kExitTimedOut ? kErrorTimeout : kErrorProgramFailed;
}

/// The option of s6-svc that sends a signal; null for a name that it cannot send.
const char* signalOption(std::string_view name) {
    if (name == "HUP") return "-h";
    if (name == "USR1") return "-1";
    if (name == "USR2") return "-2";
    return nullptr;
}

const char* reloadOption(const std::string& folder) {
    const Fd file(::open((folder + "/" + kReloadSignalFile).c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 16> text;
    const ssize_t size = file ? ::read(file.get(), text.data(), text.size()) : 0;
    std::string_view name(text.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    if (name.ends_with('\n')) name.remove_suffix(1);
    return signalOption(name);
}

}  // namespace

S6Manager::S6Manager(std::string scanFolder, std::chrono::milliseconds longest)
    : scanFolder_(std::move(scanFolder)), longest_(longest) {
}

bool S6Manager::knows(const std::string& job) const {
    return ::access((folderOf(job) + "/run").c_str(), F_OK) == 0;
}

int S6Manager::query(const std::string& folder, State& state) const {
    const ProgramResult status = runProgram({kStatus, "-o", "up,ready,wantedup,pid", folder}, kShort);
    if (status.error != 0) return status.error;
    if (status.exitCode == 1) return 0;  // no supervisor
    std::istringstream words(status.output);
    if (status.exitCode != 0 || !(words >> std::boolalpha >> state.up >> state.ready >> state.wanted >> state.pid))
        return kErrorProgramFailed;
    state.supervised = true;
    return 0;
}

/// Two watchers, since neither alone tells both ends: s6-svwait knows the truth about readiness, whenever it
/// came, and waits for ever for a job that ends at once; the listener hears that end, and is listening
/// before its own command starts the job. The end is heard when `finish` is through with it: a job that is
/// taken down before would look to that as one that was asked to end.
int S6Manager::bringUp(const std::string& folder, Deadline deadline) {
    const std::string longest = remaining(deadline);
    ChildProcess end({kListen, "-t", longest, folder + "/event", "D", kControl, "-u", folder});
    ChildProcess ready({kWait, "-U", "-t", longest, folder});
    if (!ChildProcess::awaitAny({&end, &ready}, deadline + kGrace)) return kErrorTimeout;
    if (ready.ended() || ready.error() != 0) return codeOf(ready);
    if (end.error() != 0) return end.error();
    // The listener says 1 when its time is over, just before s6-svwait would.
    return end.exitCode() == 0 ? kErrorProgramFailed : kErrorTimeout;
}

/// Of a job that is not up: its finish script may still be at work, and that it ends is not to be taken for the
/// end of the run to come. Meanwhile the supervisor may have started the job by itself.
int S6Manager::awaitEndOfLastRun(const std::string& folder, Deadline deadline) {
    const std::string longest = remaining(deadline);
    ChildProcess down({kWait, "-D", "-t", longest, folder});
    ChildProcess ready({kWait, "-U", "-t", longest, folder});
    if (!ChildProcess::awaitAny({&down, &ready}, deadline + kGrace)) return kErrorTimeout;
    return ready.ended() || ready.error() != 0 ? codeOf(ready) : codeOf(down);
}

int S6Manager::takeDown(const std::string& folder, Deadline deadline) {
    ChildProcess control({kControl, "-d", "-wD", "-T", remaining(deadline), folder});
    return control.await(deadline + kGrace) ? codeOf(control) : kErrorTimeout;
}

/// Down and up are one command to the supervisor: should this process die now, the job comes back all the
/// same. (A plain restart, -r, would not kill a job that ignores its signal.)
int S6Manager::endForRestart(const std::string& folder, const State& before, Deadline deadline) const {
    ChildProcess end({kListen, "-t", remaining(deadline), folder + "/event", "D", kControl, "-du", folder});
    const bool inTime = end.await(deadline + kGrace);
    if (inTime && end.error() != 0) return end.error();
    if (inTime && end.exitCode() == 0) return 0;
    // It may have ended by itself before the listener listened.
    State now;
    const int code = query(folder, now);
    if (code != 0) return code;
    return now.up && now.pid == before.pid ? kErrorTimeout : 0;
}

int S6Manager::start(const std::string& job) {
    if (!knows(job)) return fail(kErrorNotFound);
    const std::string folder = folderOf(job);
    State state;
    int code = query(folder, state);
    if (code == 0 && !state.supervised) code = fromErrno(ECONNREFUSED);
    if (code == 0) code = removeDownFile(folder);
    if (code != 0) return fail(code);
    if (state.up && state.ready) return 0;
    const Deadline deadline = deadlineIn(longest_);
    if (!state.up) code = awaitEndOfLastRun(folder, deadline);
    if (code == 0) code = bringUp(folder, deadline);
    if (code != 0) {
        (void)makeDownFile(folder);  // the failed start is what the caller has to know
        (void)takeDown(folder, deadlineIn(longest_));
    }
    return resultOf(code);
}

int S6Manager::stop(const std::string& job) {
    if (!knows(job)) return fail(kErrorNotFound);
    const std::string folder = folderOf(job);
    const int marked = makeDownFile(folder);
    State state;
    int code = query(folder, state);
    if (code == 0 && state.supervised) code = takeDown(folder, deadlineIn(longest_));
    return resultOf(code != 0 ? code : marked);
}

int S6Manager::restart(const std::string& job) {
    if (!knows(job)) return fail(kErrorNotFound);
    const std::string folder = folderOf(job);
    const Deadline deadline = deadlineIn(longest_);
    State state;
    int code = query(folder, state);
    if (code == 0 && !state.supervised) code = fromErrno(ECONNREFUSED);
    if (code != 0) return fail(code);
    // One that has just ended and is about to be started again is no stopped one.
    if (!state.up && !state.wanted) return start(job);
    code = removeDownFile(folder);
    if (code == 0) code = state.up ? endForRestart(folder, state, deadline) : awaitEndOfLastRun(folder, deadline);
    if (code == 0) code = bringUp(folder, deadline);
    return resultOf(code);
}

int S6Manager::reload(const std::string& job) {
    if (!knows(job)) return fail(kErrorNotFound);
    const std::string folder = folderOf(job);
    const char* option = reloadOption(folder);
    if (option == nullptr) return fail(fromErrno(EOPNOTSUPP));
    State state;
    const int code = query(folder, state);
    if (code != 0) return fail(code);
    // Before it is ready, a job may not yet have made the signal anything but its end.
    if (!state.up || !state.ready) return fail(fromErrno(ESRCH));
    const ProgramResult control = runProgram({kControl, option, folder}, kShort);
    if (control.error != 0) return fail(control.error);
    return control.exitCode == 0 ? 0 : fail(kErrorProgramFailed);
}

bool S6Manager::isRunning(const std::string& job) {
    if (!knows(job)) {
        (void)fail(kErrorNotFound);  // "no" is the answer all the same
        return false;
    }
    State state;
    if (const int code = query(folderOf(job), state); code != 0) (void)fail(code);
    return state.up && state.ready;
}

}  // namespace ombrel
