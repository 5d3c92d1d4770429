// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Processes of a test's own: to be killed, to give up rights, or to have other mounts than the machine.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace ombrel::test {

/// Forks; the child runs `body` and ends with its result as exit code, without any clean-up of the parent's.
pid_t startChild(const std::function<int()>& body);
/// Waits for it; its exit code, or 128 + the signal that ended it.
int awaitChild(pid_t child);
/// Both in one.
int runInChild(const std::function<int()>& body);

/// For the child: a mount namespace of its own, as root or through a user namespace.
/// False where the machine refuses both.
bool enterPrivateMounts();
/// What such a child ends with then.
constexpr int kSkip = 77;

/// A folder for one test, gone with it.
class TemporaryFolder {
public:
    TemporaryFolder();
    /// In that folder; in the usual place where nothing can be made there.
    explicit TemporaryFolder(const std::string& parent);
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::string at(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

void writeBytes(const std::string& path, const std::string& bytes);
std::string readBytes(const std::string& path);  ///< "<no such file>" when there is none

}  // namespace ombrel::test
