// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tests/tools/dying_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace ombrel::test {
namespace {

struct Plan {
    Fate fate = Fate::kNone;
    long long at = 0;
    int error = 0;
    CallRecord* record = nullptr;
};
Plan plan;

enum class Takes { kRoom, kNoRoom };

[[noreturn]] void die() {
    (void)::kill(::getpid(), SIGKILL);
    std::abort();  // out of reach
}

void note(const char* name) {
    (void)std::snprintf(plan.record->met.data(), plan.record->met.size(), "%s%s", name,
                        plan.record->hasRenamed ? " behind the rename" : "");
}

/// Whether this call is the one that is torn; does not return when the process dies here. `fails` tells whether
/// it has to fail with errno set.
bool meetsFate(const char* name, Takes takes, bool& fails) {
    fails = false;
    if (plan.record == nullptr) return false;
    const long long number = ++plan.record->calls;
    if (number < CallRecord::kMost) plan.record->takesRoom[static_cast<size_t>(number)] = takes == Takes::kRoom;
    const bool isFull = plan.fate == Fate::kFull && number > plan.at && takes == Takes::kRoom;
    if (number != plan.at && !isFull) return false;
    if (number == plan.at) note(name);
    if (plan.fate == Fate::kDie) die();
    if (plan.fate == Fate::kTear) return true;
    fails = plan.fate == Fate::kFail || (plan.fate == Fate::kFull && takes == Takes::kRoom);
    if (fails) errno = plan.error;
    return false;
}

/// The C library's own function of this name and type.
template <class Function>
class Next {
public:
    explicit Next(const char* name)
        : name_(name), function_(reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name))) {}

    template <class... Arguments>
    int operator()(Takes takes, Arguments... arguments) const {
        bool fails = false;
        if (meetsFate(name_, takes, fails)) die();
        return fails ? -1 : function_(arguments...);
    }
    template <class Offset>
    ssize_t write(int fd, const void* bytes, size_t size, Offset offset) const {
        bool fails = false;
        if (meetsFate(name_, Takes::kRoom, fails)) {
            (void)function_(fd, bytes, size / 2, offset);
            die();
        }
        return fails ? -1 : function_(fd, bytes, size, offset);
    }

private:
    const char* name_;
    Function* function_;
};

// What is on the disk does not matter to a process that dies, and the tests have better things to wait for.
int passSync(int fd, const char* ofFile, const char* ofFolder) {
    struct stat status {};
    const bool isFolder = ::fstat(fd, &status) == 0 && S_ISDIR(status.st_mode);
    bool fails = false;
    if (meetsFate(isFolder ? ofFolder : ofFile, Takes::kNoRoom, fails)) die();
    return fails ? -1 : 0;
}

int noteRename(int result) {
    if (plan.record != nullptr && result == 0) plan.record->hasRenamed = true;
    return result;
}

}  // namespace

void armCalls(Fate fate, long long at, int error, CallRecord& record) {
    plan = {fate, at, error, &record};
}

void disarmCalls() {
    plan = {};
}

}  // namespace ombrel::test

using namespace ombrel::test;

// Where they are hidden the shared libraries do not find them.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's own names are reserved
#pragma GCC visibility push(default)
extern "C" {

int rename(const char* from, const char* to) noexcept {
    static const Next<int(const char*, const char*)> next("rename");
    return noteRename(next(Takes::kRoom, from, to));
}
int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) noexcept {
    static const Next<int(int, const char*, int, const char*, unsigned)> next("renameat2");
    return noteRename(next(Takes::kRoom, fromFolder, from, toFolder, to, flags));
}
int link(const char* from, const char* to) noexcept {
    static const Next<int(const char*, const char*)> next("link");
    return next(Takes::kRoom, from, to);
}
int unlink(const char* path) noexcept {
    static const Next<int(const char*)> next("unlink");
    return next(Takes::kNoRoom, path);
}
int mkdir(const char* path, mode_t mode) noexcept {
    static const Next<int(const char*, mode_t)> next("mkdir");
    return next(Takes::kRoom, path, mode);
}
int rmdir(const char* path) noexcept {
    static const Next<int(const char*)> next("rmdir");
    return next(Takes::kNoRoom, path);
}
int fchmod(int fd, mode_t mode) noexcept {
    static const Next<int(int, mode_t)> next("fchmod");
    return next(Takes::kNoRoom, fd, mode);
}
int fchown(int fd, uid_t user, gid_t group) noexcept {
    static const Next<int(int, uid_t, gid_t)> next("fchown");
    return next(Takes::kNoRoom, fd, user, group);
}
int futimens(int fd, const struct timespec* times) noexcept {
    static const Next<int(int, const struct timespec*)> next("futimens");
    return next(Takes::kNoRoom, fd, times);
}
int ftruncate(int fd, off_t size) noexcept {
    static const Next<int(int, off_t)> next("ftruncate");
    return next(Takes::kNoRoom, fd, size);
}
int ftruncate64(int fd, off64_t size) noexcept {
    static const Next<int(int, off64_t)> next("ftruncate64");
    return next(Takes::kNoRoom, fd, size);
}
int fsync(int fd) {
    return passSync(fd, "fsync", "fsync of a folder");
}
int fdatasync(int fd) {
    return passSync(fd, "fdatasync", "fdatasync of a folder");
}
ssize_t pwrite(int fd, const void* bytes, size_t size, off_t offset) {
    static const Next<ssize_t(int, const void*, size_t, off_t)> next("pwrite");
    return next.write(fd, bytes, size, offset);
}
ssize_t pwrite64(int fd, const void* bytes, size_t size, off64_t offset) {
    static const Next<ssize_t(int, const void*, size_t, off64_t)> next("pwrite64");
    return next.write(fd, bytes, size, offset);
}

}  // extern "C"
#pragma GCC visibility pop
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
