// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/veskserviceconf/s6_service_folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "linux/common/error_record.h"
#include "linux/veskcore/atomic_write.h"
#include "linux/veskcore/folder_lock.h"
#include "linux/veskserviceconf/job_places.h"

namespace ombrel {

namespace {

constexpr mode_t kScript = 0755;
constexpr mode_t kText = 0644;

/// A word of a shell script that means just itself.
std::string quoted(const std::string& word) {
    std::string result = "'";
    for (const char character : word)
        character == '\'' ? result += "'\\''" : result += character;
    return result + "'";
}

std::string shellCommand(const std::vector<std::string>& command) {
    std::string line;
    for (const std::string& word : command)
        line += " " + quoted(word);
    return line;
}

std::string script(const JobDefinition& job, const std::string& body) {
    return "#!/bin/sh\n# Made from " + job.name + ".job by ombrel-jobs, which also writes over changes.\n" + body;
}

/// s6 has no timers: what is to be done again and again does so by itself.
std::vector<std::string> commandOf(const JobDefinition& job) {
    std::vector<std::string> command = job.command;
    if (job.everySeconds > 0) {
        command.push_back("--every=" + std::to_string(job.everySeconds));
        command.push_back("--notify-fd=" + std::to_string(job.readyFd));
    }
    return command;
}

std::string runScript(const JobDefinition& job) {
    std::string line = "exec";
    if (job.user != "root") line += " /usr/bin/s6-setuidgid " + quoted(job.user);
    return script(job, "exec 2>&1\n" + line + shellCommand(commandOf(job)) + "\n");
}

/// s6 gives it 5 s; its exit code 125 would keep the job from being started again.
std::string finishScript(const JobDefinition& job) {
    const std::string program = quoted(kJobEnded);
    return script(job, "exec 2>&1\n[ ! -x " + program + " ] || " + program + " " + quoted(job.name) +
                           " \"$1\" \"$2\"\nexit 0\n");
}

/// Makes one level of folder; one that exists is fine.
int makeFolder(const std::string& path) {
    if (::mkdir(path.c_str(), 0755) == 0 || errno == EEXIST) return 0;
    return fail(fromErrno(errno));
}

int writeFiles(const std::vector<ServiceFile>& files, const std::string& folder) {
    for (const ServiceFile& file : files) {
        const std::size_t slash = file.name.find('/');
        const std::string within = slash == std::string::npos ? folder : folder + "/" + file.name.substr(0, slash);
        const std::string name = slash == std::string::npos ? file.name : file.name.substr(slash + 1);
        if (makeFolder(within) != 0) return -1;
        FolderLock lock;
        if (lock.acquire(within) != 0) return -1;
        if (replaceFile(lock.folder(), name, file.text, -1, file.mode) != 0) return -1;
    }
    return 0;
}

/// What an earlier version of the definition had and this one has not.
int removeStale(const std::string& folder, const std::vector<ServiceFile>& files) {
    for (const char* name : {"data/check", kReloadSignalFile}) {
        bool wanted = false;
        for (const ServiceFile& file : files)
            wanted = wanted || file.name == name;
        if (wanted) continue;
        if (::unlink((folder + "/" + name).c_str()) != 0 && errno != ENOENT) return fail(fromErrno(errno));
    }
    return 0;
}

}  // namespace

std::vector<ServiceFile> renderServiceFolder(const JobDefinition& job, const std::string& logFolder) {
    std::vector<ServiceFile> files{
        {"run", runScript(job), kScript},
        {"finish", finishScript(job), kScript},
        {"notification-fd", std::to_string(job.readyFd) + "\n", kText},
        {"down-signal", "SIG" + job.stopSignal + "\n", kText},
        {"timeout-kill", std::to_string(job.stopTimeoutSeconds * 1000) + "\n", kText},
        {"log/notification-fd", "3\n", kText},
        {"log/run",
         script(job, "exec /usr/bin/s6-log -d 3 n10 s1000000 T " + quoted(logFolder + "/" + job.name) + "\n"),
         kScript}};
    if (!job.reloadSignal.empty()) files.push_back({kReloadSignalFile, job.reloadSignal + "\n", kText});
    return files;
}

int writeServiceFolder(const JobDefinition& job, const std::string& scanFolder, const std::string& logFolder) {
    const std::vector<ServiceFile> files = renderServiceFolder(job, logFolder);
    const std::string folder = scanFolder + "/" + job.name;
    if (makeFolder(scanFolder) != 0 || makeFolder(logFolder) != 0 || makeFolder(logFolder + "/" + job.name) != 0)
        return -1;
    if (::access(folder.c_str(), F_OK) == 0) {
        if (removeStale(folder, files) != 0) return -1;
        return writeFiles(files, folder);
    }
    // s6-svscan passes over names with a leading dot, so it never sees half a folder. One that a killed
    // ombrel-jobs left is completed.
    const std::string draft = scanFolder + "/." + job.name + ".new";
    if (makeFolder(draft) != 0 || removeStale(draft, files) != 0 || writeFiles(files, draft) != 0) return -1;
    if (writeFiles({{"down", "", kText}}, draft) != 0) return -1;
    return std::rename(draft.c_str(), folder.c_str()) == 0 ? 0 : fail(fromErrno(errno));
}

}  // namespace ombrel
