// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tests/linux/child_process.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "linux/common/fd.h"

namespace ombrel::test {
namespace {

bool writeMap(const char* path, const std::string& text) {
    const Fd fd(::open(path, O_WRONLY | O_CLOEXEC));
    return fd && ::write(fd.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

bool becomeRootOfUserNamespace() {
    const std::string user = "0 " + std::to_string(::geteuid()) + " 1";
    const std::string group = "0 " + std::to_string(::getegid()) + " 1";
    return ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && writeMap("/proc/self/setgroups", "deny") &&
           writeMap("/proc/self/uid_map", user) && writeMap("/proc/self/gid_map", group);
}

}  // namespace

pid_t startChild(const std::function<int()>& body) {
    const pid_t child = ::fork();
    if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) ::_exit(body());
    return child;
}

int awaitChild(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "waitpid");
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

int runInChild(const std::function<int()>& body) {
    return awaitChild(startChild(body));
}

bool enterPrivateMounts() {
    if (::unshare(CLONE_NEWNS) != 0 && !becomeRootOfUserNamespace()) return false;
    return ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

TemporaryFolder::TemporaryFolder() : TemporaryFolder(std::filesystem::temp_directory_path()) {
}

TemporaryFolder::TemporaryFolder(const std::string& parent) {
    path_ = parent + "/ombrel-test-XXXXXX";
    if (::mkdtemp(path_.data()) != nullptr) return;
    path_ = std::filesystem::temp_directory_path() / "ombrel-test-XXXXXX";
    if (::mkdtemp(path_.data()) == nullptr) throw std::system_error(errno, std::generic_category(), path_);
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void writeBytes(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out) throw std::system_error(errno, std::generic_category(), path);
}

std::string readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return "<no such file>";
    return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace ombrel::test
