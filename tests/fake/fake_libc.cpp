// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The C library's functions that the linker wraps (--wrap) in executables with the fake platform. What the
// test harness itself calls passes through.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "tests/fake/fake_platform.h"

using ombrel::test::FakePlatform;

extern "C" {

time_t __real_time(time_t* result);
int __real_statfs64(const char* path, struct statfs64* status);
int __real_stat64(const char* path, struct stat64* status);
int __real_mkstemp(char* pattern);
FILE* __real_fdopen(int fd, const char* mode);
int __real_fclose(FILE* file);
int __real_open(const char* path, int flags, ...);
int __real_unlink(const char* path);
void __real_vsyslog(int priority, const char* format, va_list arguments);
void __real_free(void* object);

time_t __wrap_time(time_t* result);
int __wrap_statfs64(const char* path, struct statfs64* status);
int __wrap_stat64(const char* path, struct stat64* status);
int __wrap_mkstemp(char* pattern);
FILE* __wrap_fdopen(int fd, const char* mode);
int __wrap_fclose(FILE* file);
int __wrap_open(const char* path, int flags, ...);
int __wrap_unlink(const char* path);
void __wrap_syslog(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));
void __wrap_vsyslog(int priority, const char* format, va_list arguments) __attribute__((format(printf, 2, 0)));
void __wrap_free(void* object);

}  // extern "C"

namespace {

/// The object for a path of the code under test; null for the files of the test harness.
FakePlatform* platformFor(const char* path) {
    for (const char* harness : {"/dev/", "/proc/", "/tmp/gtest_captured"}) {
        if (std::strncmp(path, harness, std::strlen(harness)) == 0) return nullptr;
    }
    return FakePlatform::currentOrNull();
}

std::string priorityName(int priority) {
    constexpr std::array<const char*, 8> kNames = {"emerg",   "alert",  "crit", "err",
                                                   "warning", "notice", "info", "debug"};
    const std::string name = kNames[static_cast<std::size_t>(LOG_PRI(priority))];
    const int rest = priority & ~LOG_PRIMASK;
    return rest == 0 ? name : name + "+" + std::to_string(rest);
}

}  // namespace

time_t __wrap_time(time_t* result) {
    FakePlatform* platform = FakePlatform::currentOrNull();
    if (platform == nullptr) return __real_time(result);
    platform->calls.note("time");
    const auto now = static_cast<time_t>(platform->now);
    if (result != nullptr) *result = now;
    return now;
}

int __wrap_statfs64(const char* path, struct statfs64* status) {
    FakePlatform* platform = platformFor(path);
    if (platform == nullptr) return __real_statfs64(path, status);
    if (platform->calls.enter("statfs64", path)) return -1;
    const auto given = platform->space.find(path);
    if (given == platform->space.end()) {
        if (__real_statfs64(platform->real(path).c_str(), status) != 0) return -1;
        status->f_bsize = 4096;
        status->f_bavail = 1ULL << 30;
        return 0;
    }
    *status = {};
    status->f_bsize = static_cast<decltype(status->f_bsize)>(given->second.blockSize);
    status->f_bavail = given->second.blocksAvailable;
    status->f_bfree = given->second.blocksAvailable + 1000;  // the blocks kept back for root do not count
    return 0;
}

int __wrap_stat64(const char* path, struct stat64* status) {
    FakePlatform* platform = platformFor(path);
    if (platform == nullptr) return __real_stat64(path, status);
    if (platform->calls.enter("stat64", path)) return -1;
    if (__real_stat64(platform->real(path).c_str(), status) != 0) return -1;
    const auto size = platform->reportedSizes.find(path);
    if (size != platform->reportedSizes.end()) status->st_size = size->second;
    return 0;
}

int __wrap_mkstemp(char* pattern) {
    FakePlatform* platform = platformFor(pattern);
    if (platform == nullptr) return __real_mkstemp(pattern);
    if (platform->calls.enter("mkstemp", pattern)) return -1;
    const std::size_t length = std::strlen(pattern);
    if (length < 6 || std::strcmp(pattern + length - 6, "XXXXXX") != 0) {
        errno = EINVAL;
        return -1;
    }
    const std::string suffix = platform->nextTemporarySuffix();
    std::memcpy(pattern + length - suffix.size(), suffix.data(), suffix.size());
    const int fd = __real_open(platform->real(pattern).c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0 || !platform->scratchIsFull) return fd;
    (void)::close(fd);
    return __real_open("/dev/full", O_RDWR | O_CLOEXEC);
}

FILE* __wrap_fdopen(int fd, const char* mode) {
    FakePlatform* platform = FakePlatform::currentOrNull();
    if (platform == nullptr) return __real_fdopen(fd, mode);
    if (platform->calls.enter("fdopen", mode)) return nullptr;
    FILE* file = __real_fdopen(fd, mode);
    if (file != nullptr) platform->live.add("stream", file);
    return file;
}

int __wrap_fclose(FILE* file) {
    if (FakePlatform* platform = FakePlatform::currentOrNull()) {
        platform->calls.note("fclose");
        platform->live.removeIfKnown("stream", file);
    }
    return __real_fclose(file);
}

int __wrap_open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    FakePlatform* platform = platformFor(path);
    if (platform == nullptr) return __real_open(path, flags, mode);
    if (platform->calls.enter("open", path)) return -1;
    return __real_open(platform->real(path).c_str(), flags, mode);
}

int __wrap_unlink(const char* path) {
    FakePlatform* platform = platformFor(path);
    if (platform == nullptr) return __real_unlink(path);
    if (platform->calls.enter("unlink", path)) return -1;
    return __real_unlink(platform->real(path).c_str());
}

void __wrap_vsyslog(int priority, const char* format, va_list arguments) {
    FakePlatform* platform = FakePlatform::currentOrNull();
    if (platform == nullptr) {
        __real_vsyslog(priority, format, arguments);
        return;
    }
    std::array<char, 8192> text{};
    (void)std::vsnprintf(text.data(), text.size(), format, arguments);
    const std::string line = priorityName(priority) + " " + text.data();
    platform->calls.note("syslog", line);
    platform->syslogLines.push_back(line);
}

void __wrap_syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    __wrap_vsyslog(priority, format, arguments);
    va_end(arguments);
}

void __wrap_free(void* object) {
    if (FakePlatform* platform = FakePlatform::currentOrNull()) {
        platform->live.removeIfKnown("port info", object);
        platform->live.removeIfKnown("section info", object);
    }
    __real_free(object);
}
