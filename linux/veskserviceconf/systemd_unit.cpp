// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/veskserviceconf/systemd_unit.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <string_view>

#include "linux/common/error_record.h"
#include "linux/common/folder_stream.h"
#include "linux/veskcore/atomic_write.h"
#include "linux/veskcore/folder_lock.h"
#include "linux/veskserviceconf/job_places.h"

namespace ombrel {

namespace {

constexpr std::string_view kSuffix = ".service";
constexpr std::string_view kTimerSuffix = ".timer";

constexpr const char* kMadeByUs = "# Made by ombrel-jobs, which also writes over changes, from ";

std::string headerOf(const std::string& name, const std::string& jobFolder) {
    return kMadeByUs + jobFolder + "/" + name + ".job";
}

/// A setting that is text, in which only "%" means something; and a backslash at the end of a line.
std::string plainText(const std::string& text) {
    std::string result;
    for (const char character : text) {
        if (character == '%') result += '%';
        result += character;
    }
    return result.ends_with('\\') ? result + " " : result;
}

/// A word of a command line that means just itself. Variables are looked for behind the program's own word only.
std::string commandWord(const std::string& word, bool isProgram) {
    constexpr std::string_view kHarmless =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-./,:=+@";
    if (!word.empty() && word.find_first_not_of(kHarmless) == std::string::npos) return word;
    std::string result = "\"";
    for (const char character : word) {
        if (character == '%' || (character == '$' && !isProgram)) result += character;
        if (character == '"' || character == '\\') result += '\\';
        result += character;
    }
    return result + "\"";
}

std::string commandLine(const std::vector<std::string>& command) {
    std::string line;
    for (const std::string& word : command)
        line += (line.empty() ? "" : " ") + commandWord(word, line.empty());
    return line;
}

/// One run of a job with a timer. It may take its time, and what it has started goes on when it has ended.
std::string runSection(const JobDefinition& job) {
    std::string text = "[Service]\nType=oneshot\nExecStart=" + commandLine(job.command) + "\n";
    text += std::string("ExecStopPost=-+") + kJobEnded + " " + job.name + "\n";
    if (job.user != "root") text += "User=" + job.user + "\n";
    text += "KillMode=process\nKillSignal=SIG" + job.stopSignal + "\n";
    text += "TimeoutStartSec=infinity\nTimeoutStopSec=" + std::to_string(job.stopTimeoutSeconds) + "\n";
    return text + "StandardOutput=journal\nStandardError=inherit\n";
}

std::string serviceSection(const JobDefinition& job) {
    std::string text = "[Service]\nType=notify\nNotifyAccess=main\nExecStart=" + commandLine(job.command) + "\n";
    if (!job.reloadSignal.empty()) text += "ExecReload=/bin/kill -s " + job.reloadSignal + " $MAINPID\n";
    // As root whoever runs the job, and no matter whether it is installed.
    text += std::string("ExecStopPost=-+") + kJobEnded + " " + job.name + "\n";
    if (job.user != "root") text += "User=" + job.user + "\n";
    text += "KillMode=mixed\nKillSignal=SIG" + job.stopSignal + "\n";
    text += "TimeoutStartSec=30\nTimeoutStopSec=" + std::to_string(job.stopTimeoutSeconds) + "\n";
    return text + "Restart=always\nRestartSec=1\nStandardOutput=journal\nStandardError=inherit\n";
}

std::string firstLineOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string line;
    std::getline(file, line);
    return line;
}

/// The names of the units of a folder that were made from definitions of `jobFolder`; `suffix` is that of their
/// files.
int findUnits(const std::string& jobFolder, const std::string& unitFolder, std::string_view suffix,
              std::vector<std::string>& names) {
    const FolderStream folder(::opendir(unitFolder.c_str()));
    if (!folder) return fail(fromErrno(errno));
    while (const dirent* entry = ::readdir(folder.get())) {
        const std::string file = entry->d_name;
        if (file.starts_with('.') || !file.ends_with(suffix)) continue;
        const std::string name = file.substr(0, file.size() - suffix.size());
        if (firstLineOf(unitFolder + "/" + file) == headerOf(name, jobFolder)) names.push_back(name);
    }
    return 0;
}

int removeFile(const std::string& path) {
    return ::unlink(path.c_str()) == 0 || errno == ENOENT || errno == ENOTDIR ? 0 : fail(fromErrno(errno));
}

}  // namespace

std::string renderUnit(const JobDefinition& job, const std::string& jobFolder) {
    std::string text =
        headerOf(job.name, jobFolder) + "\n[Unit]\nDescription=" + plainText(job.description) + "\n";
    if (!job.after.empty()) text += "After=" + job.after + ".service\n";
    if (job.everySeconds > 0) return text + "\n" + runSection(job);
    // However often it ends, it is tried again.
    text += "StartLimitIntervalSec=0\n\n" + serviceSection(job);
    return text + "\n[Install]\nWantedBy=multi-user.target\n";
}

// The first run comes at once, the next ones that long after the beginning of the one before.
std::string renderTimer(const JobDefinition& job, const std::string& jobFolder) {
    return headerOf(job.name, jobFolder) + "\n[Unit]\nDescription=" + plainText(job.description) +
           "\n\n[Timer]\nOnActiveSec=0\nOnUnitActiveSec=" + std::to_string(job.everySeconds) +
           "\nAccuracySec=1\n\n[Install]\nWantedBy=timers.target\n";
}

namespace {

int writeOne(const FolderLock& lock, const std::string& unitFolder, const std::string& name,
             const std::string& text) {
    struct stat info {};
    const bool isThere = ::fstatat(lock.folder(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0;
    // A link may be somebody's way to switch the unit off (systemctl mask).
    const bool isOurs = S_ISREG(info.st_mode) && firstLineOf(unitFolder + "/" + name).starts_with(kMadeByUs);
    if (isThere && !isOurs) {
        errno = EEXIST;
        return fail(fromErrno(errno));
    }
    return replaceFile(lock.folder(), name, text, -1, 0644);
}

/// The file of a unit and the link that has it started at boot.
int removeUnit(const std::string& unitFolder, const char* target, const std::string& file) {
    if (removeFile(unitFolder + "/" + target + ".wants/" + file) != 0) return -1;
    return removeFile(unitFolder + "/" + file);
}

int removeTimer(const std::string& name, const std::string& unitFolder) {
    return removeUnit(unitFolder, "timers.target", name + std::string(kTimerSuffix));
}

}  // namespace

int writeUnit(const JobDefinition& job, const std::string& jobFolder, const std::string& unitFolder) {
    FolderLock lock;
    if (lock.acquire(unitFolder) != 0) return -1;
    if (writeOne(lock, unitFolder, job.name + std::string(kSuffix), renderUnit(job, jobFolder)) != 0) return -1;
    const std::string timer = job.name + std::string(kTimerSuffix);
    if (job.everySeconds > 0) return writeOne(lock, unitFolder, timer, renderTimer(job, jobFolder));
    const bool isOurs = firstLineOf(unitFolder + "/" + timer) == headerOf(job.name, jobFolder);
    return isOurs ? removeTimer(job.name, unitFolder) : 0;
}

int removeStaleUnits(const std::vector<JobDefinition>& jobs, const std::string& jobFolder,
                     const std::string& unitFolder, std::vector<std::string>& removed) {
    std::vector<std::string> units;
    std::vector<std::string> timers;
    if (findUnits(jobFolder, unitFolder, kSuffix, units) != 0) return -1;
    if (findUnits(jobFolder, unitFolder, kTimerSuffix, timers) != 0) return -1;
    const auto isStale = [&jobs](const std::string& name) {
        return std::none_of(jobs.begin(), jobs.end(), [&](const JobDefinition& job) { return job.name == name; });
    };
    for (const std::string& name : timers) {
        if (isStale(name) && removeTimer(name, unitFolder) != 0) return -1;
    }
    for (const std::string& name : units) {
        if (!isStale(name)) continue;
        if (removeUnit(unitFolder, "multi-user.target", name + std::string(kSuffix)) != 0) return -1;
        removed.push_back(name);
    }
    return 0;
}

}  // namespace ombrel
