// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Real jobs and shares, for tests that run in a private root: there the fixed folders are theirs.
#include <sys/mount.h>
#include <systemd/sd-daemon.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <system_error>

#include "linux/veskserviceconf/job_places.h"
#include "tests/contract/linux_makers.h"
#include "tests/linux/real_jobs.h"

namespace ombrel::contract {

namespace {

constexpr const char* kShareFile = "/etc/samba/smb.conf";

/// The folder of this test program in the private root.
std::string privateFolder() {
    if (std::getenv("OMBREL_PRIVATE_ROOT") == nullptr)
        throw std::runtime_error("only in a private root (scripts/private-root)");
    const std::string folder = "/tmp/service-maker";
    std::filesystem::create_directories(folder);
    return folder;
}

/// The machine's share definitions are hidden by a file of ours, which is emptied for each test.
class ShareFile {
public:
    explicit ShareFile(const std::string& folder) : path_(folder + "/smb.conf") {
        std::ofstream(path_) << "[global]\n";
        if (::mount(path_.c_str(), kShareFile, nullptr, MS_BIND, nullptr) != 0)
            throw std::runtime_error(std::string(kShareFile) + ": " + std::strerror(errno));
    }
    void add(const std::string& name, const std::string& path) {
        std::ofstream(path_, std::ios::app) << "[" << name << "]\n path = " << path << "\n";
    }
    void clear() { std::ofstream(path_) << "[global]\n"; }

private:
    std::string path_;
};

}  // namespace

void makeLinuxJob(const std::string& job, JobKind kind) {
    const std::string folder = privateFolder();
    if (::sd_booted() > 0) return test::makeUnit(test::scriptedJob(job, kind, folder));
    static const test::Supervisor supervisor{kScanFolder};  // ends with the program
    test::addJob(test::scriptedJob(job, kind, folder), kScanFolder, kJobLogFolder);
}

void makeLinuxShare(const std::string& name, const std::string& path) {
    static ShareFile shares(privateFolder());
    // A world's folder is new for each test: its first share is the first of its test.
    static std::filesystem::path world;
    const std::filesystem::path parent = std::filesystem::path(path).parent_path();
    if (parent != world) shares.clear();
    world = parent;
    shares.add(name, path);
}

}  // namespace ombrel::contract
