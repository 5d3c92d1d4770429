// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tests/linux/real_jobs.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "linux/common/child_process.h"

namespace ombrel::test {

namespace {

using contract::JobKind;

constexpr std::chrono::seconds kLongest{10};

[[noreturn]] void runSupervisor(const std::string& folder, pid_t parent, int ready) {
    (void)::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent || ::dup2(ready, 3) != 3) ::_exit(70);
    const Fd input(::open("/dev/null", O_RDWR | O_CLOEXEC));
    (void)::dup2(input.get(), STDIN_FILENO);
    (void)::dup2(input.get(), STDOUT_FILENO);
    (void)::execl("/usr/bin/s6-svscan", "s6-svscan", "-d", "3", folder.c_str(), nullptr);
    ::_exit(72);
}

const char* scriptOf(JobKind kind) {
    switch (kind) {
        case JobKind::kReadyAtOnce:
            return "trap 'echo reloaded >\"${0%/*}/events\"' HUP\n"
                   "trap 'kill $!; exit 0' TERM\n"
                   "ready\n"
                   "while :; do setpriv --pdeathsig KILL sleep 1000 >/dev/null 2>&1 & wait $!; done\n";  // ends
                                                                                                         // with
                                                                                                         // the
                                                                                                         // shell
        case JobKind::kNeverReady:
            return "exec sleep 1000\n";
        case JobKind::kExitsAtOnce:
            return "exit 3\n";
        case JobKind::kIgnoresSigterm:
            return "trap '' TERM\nready\nexec sleep 1000\n";
    }
    return "";
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += word + " ";
    return text;
}

std::string definitionOf(const JobDefinition& job) {
    std::string text = "description=\"" + job.description + "\"\ncommand=\"" + joined(job.command) + "\"\n";
    text += "ready_fd=\"" + std::to_string(job.readyFd) + "\"\n";
    if (!job.reloadSignal.empty()) text += "reload_signal=\"" + job.reloadSignal + "\"\n";
    text += "stop_signal=\"" + job.stopSignal + "\"\n";
    return text + "stop_timeout_seconds=\"" + std::to_string(job.stopTimeoutSeconds) + "\"\n";
}

void runOmbrelJobs(const JobDefinition& job, const std::vector<std::string>& options) {
    std::string definitions = (std::filesystem::temp_directory_path() / "ombrel-jobs-XXXXXX").string();
    if (::mkdtemp(definitions.data()) == nullptr) throw std::runtime_error("no temporary folder");
    std::ofstream(definitions + "/" + job.name + ".job") << definitionOf(job);
    std::vector<std::string> words{OMBREL_JOBS_PROGRAM, "--jobs=" + definitions};
    words.insert(words.end(), options.begin(), options.end());
    const ProgramResult made = runProgram(words, kLongest);
    std::filesystem::remove_all(definitions);
    if (made.error != 0 || made.exitCode != 0) throw std::runtime_error("ombrel-jobs failed: " + made.errors);
}

}  // namespace

// systemd-notify speaks for the process that runs it.
const char* const kScriptHead =
    "#!/bin/sh\n"
    "ready() { if [ -n \"$NOTIFY_SOCKET\" ]; then systemd-notify --ready; else echo >&3; exec 3>&-; fi; }\n";

Supervisor::Supervisor(std::string scanFolder) : scanFolder_(std::move(scanFolder)) {
    if (::access("/usr/bin/s6-svscan", X_OK) != 0) throw std::runtime_error("s6-svscan is not installed");
    std::filesystem::create_directories(scanFolder_);
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    const Fd readEnd(ends[0]);
    Fd writeEnd(ends[1]);
    const pid_t parent = ::getpid();
    pid_ = ::fork();
    if (pid_ == 0) runSupervisor(scanFolder_, parent, writeEnd.get());
    writeEnd.reset();
    pollfd wait{readEnd.get(), POLLIN, 0};
    char line = 0;
    const bool ready = ::poll(&wait, 1, 10000) == 1 && ::read(readEnd.get(), &line, 1) == 1;
    if (!ready) throw std::runtime_error("s6-svscan did not come up over " + scanFolder_);
}

Supervisor::~Supervisor() {
    (void)::kill(pid_, SIGTERM);
    const Fd process(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
    pollfd wait{process.get(), POLLIN, 0};
    if (::poll(&wait, 1, 30000) != 1) {
        ADD_FAILURE() << "the jobs of " << scanFolder_ << " do not end";
        (void)::kill(pid_, SIGKILL);
    }
    (void)::waitpid(pid_, nullptr, 0);
}

JobDefinition scriptedJob(const std::string& name, JobKind kind, const std::string& folder) {
    const std::string path = folder + "/" + name + ".sh";
    std::ofstream(path) << kScriptHead << scriptOf(kind);
    std::filesystem::permissions(path, std::filesystem::perms(0755));
    JobDefinition job;
    job.name = name;
    job.description = "a job for a test";
    job.command = {path};
    job.readyFd = 3;
    job.reloadSignal = "HUP";
    job.stopTimeoutSeconds = 1;
    return job;
}

void makeServiceFolder(const JobDefinition& job, const std::string& scanFolder, const std::string& logFolder) {
    runOmbrelJobs(job, {"--scan=" + scanFolder, "--log=" + logFolder});
}

void makeUnit(const JobDefinition& job) {
    runOmbrelJobs(job, {"--systemd"});
}

void addJob(const JobDefinition& job, const std::string& scanFolder, const std::string& logFolder) {
    const std::string folder = scanFolder + "/" + job.name;
    makeServiceFolder(job, scanFolder, logFolder);
    (void)runProgram({"/usr/bin/s6-mkfifodir", folder + "/event"}, kLongest);
    // The first look of the supervisor at its folder comes after it said that it is ready. When that has found the
    // job before anybody listened, nobody would hear of it any more.
    const ProgramResult taken = runProgram(
        {"/usr/bin/s6-ftrig-listen1", "-t", "10000", folder + "/event", "s", "/bin/sh", "-c",
         "s6-svscanctl -a \"$1\" && { ! s6-svstat \"$2\" >/dev/null 2>&1 || s6-ftrig-notify \"$2/event\" s; }",
         "sh", scanFolder, folder},
        kLongest + kLongest);
    if (taken.error != 0 || taken.exitCode != 0) throw std::runtime_error("no supervisor for " + folder);
}

}  // namespace ombrel::test
