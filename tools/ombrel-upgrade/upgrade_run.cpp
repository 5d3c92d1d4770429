// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/upgrade_run.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <utility>

#include "linux/common/path_parts.h"
#include "linux/common/progress_bar.h"
#include "linux/common/text_escape.h"
#include "ombrel/utils.h"
#include "ombrel/utils_updater.h"
#include "tools/ombrel-upgrade/adoption.h"
#include "tools/ombrel-upgrade/placement.h"
#include "tools/ombrel-upgrade/progress_display.h"
#include "tools/ombrel-upgrade/upgrade_json.h"

namespace ombrel {

namespace {

constexpr const char* kSettingsFile = "/var/packages/Ombrel/target/service/conf/server.conf";

// Each line at once: on a terminal it stands between those of the progress.
void sayAsItIs(const std::string& text) {
    (void)std::fputs(text.c_str(), stdout);
    (void)std::fflush(stdout);
}

/// The exit code of the program is that of the first thing that was wrong.
class Complaints {
public:
    void say(const std::string& what, int exitCode) {
        (void)std::fprintf(stderr, "ombrel-upgrade: %s\n", escapeForLine(what).c_str());
        if (code_ == EX_OK) code_ = exitCode;
    }
    [[nodiscard]] int code() const noexcept { return code_; }

private:
    int code_ = EX_OK;
};

std::string rowsAndRate(const UpgradeOutcome& outcome, long long doneBefore, double seconds) {
    const auto rows = static_cast<unsigned long long>(outcome.rows);
    const long long now = outcome.rows > doneBefore ? outcome.rows - doneBefore : 0;
    std::string text = groupedNumber(rows) + (rows == 1 ? " row in " : " rows in ");
    if (seconds < 60) {
        char shown[32];
        (void)std::snprintf(shown, sizeof shown, "%.1f s", seconds);
        text += shown;
    } else {
        text += durationText(seconds);
    }
    const double rate = seconds > 0 ? static_cast<double>(now) / seconds : 0;
    return text + " (" + groupedNumber(static_cast<unsigned long long>(rate)) + " rows/s)";
}

bool isFile(const std::string& path, const FoundDatabase& file) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && status.st_dev == file.device && status.st_ino == file.inode;
}

class Run {
public:
    Run(const UpgradeOptions& options, const UpgradeSteps& steps, const std::atomic<bool>& stop)
        : options_(options), steps_(steps), stop_(stop), display_(stop) {}

    int run() {
        if (options_.all && !settingsCanBeRead()) return complaints_.code();
        find();
        if (stop_) return stoppedBefore();
        const std::vector<VolumeNeed> volumes = volumeNeeds(files_);
        if (options_.dryRun) return showPlan(volumes);
        const auto problems = spaceProblems(volumes, options_.removeOld, steps_.isEnough, steps_.freeBytes);
        if (!problems.empty()) return refuse(problems);
        return upgradeAll();
    }

private:
    bool settingsCanBeRead();
    void find();
    void addFolders(DatabaseFinder& finder);
    void leaveOutIrreplaceable();
    int showPlan(const std::vector<VolumeNeed>& volumes);
    int refuse(const std::vector<std::string>& problems);
    int stoppedBefore();
    int upgradeAll();
    /// False when the file is where it was.
    bool adopt(FoundDatabase& file);
    const WorkFolder* workFolderOf(const std::string& path);
    UpgradeEnd upgradeOne(FoundDatabase file, size_t number);
    /// What the user is to know, about a file or none.
    void say(const std::string& line, const std::string& path = {});
    void sayOutcome(const FoundDatabase& file, const UpgradeOutcome& outcome, double seconds);
    void sayDone(const FoundDatabase& file, const UpgradeOutcome& outcome, double seconds);
    void saySummary(size_t done, size_t failed, size_t left);

    const UpgradeOptions& options_;
    const UpgradeSteps& steps_;
    const std::atomic<bool>& stop_;
    ProgressDisplay display_;
    Complaints complaints_;
    std::vector<FoundDatabase> files_;
    std::map<std::string, WorkFolder> workFolders_;  // locked until the end of the run
};

void Run::say(const std::string& line, const std::string& path) {
    sayAsItIs(options_.json ? noteJson(line, path) : escapeForLine(line) + "\n");
}

bool Run::settingsCanBeRead() {
    _SYSLOG_CONF_SETTINGS_tag settings;
    if (SyslogConfGet(kSettingsFile, settings) >= 0) return true;
    complaints_.say(std::string("cannot read the settings in ") + kSettingsFile +
                        ", which --all needs; name the databases instead",
                    EX_CONFIG);
    return false;
}

void Run::addFolders(DatabaseFinder& finder) {
    const std::string service = SyslogUpdaterServiceFolderGet();
    const std::string archive = SyslogUpdaterArchiveFolderGet();
    // The share may be gone, and working databases lie in the archive folder: worth a word, and no failure.
    if (service.empty()) {
        complaints_.say(std::string("cannot find the share that server_db_loc names in ") + kSettingsFile +
                            "; the databases in it are left out",
                        archive.empty() ? EX_CONFIG : EX_OK);
    } else {
        finder.addFolder(service);
    }
    if (archive.empty()) {
        complaints_.say(std::string("arch_dest is empty in ") + kSettingsFile + "; no archives are looked for",
                        EX_CONFIG);
    } else {
        finder.addFolder(archive);
    }
}

void Run::find() {
    DatabaseFinder::Probes probes = steps_.probes;
    if (!options_.zip) probes.zip = nullptr;
    DatabaseFinder finder(std::move(probes));
    if (options_.all) addFolders(finder);
    for (const std::string& path : options_.paths)
        finder.addPath(path);
    Findings found = finder.take();
    for (const FindNote& note : found.notes) {
        if (note.exitCode == EX_OK && !options_.all) {
            say(note.text);  // the answer to what was asked
        } else {
            complaints_.say(note.text, note.exitCode);
        }
    }
    files_ = std::move(found.databases);
    leaveOutIrreplaceable();
}

// Where the new file cannot take the place of the old one, converting is in vain.
void Run::leaveOutIrreplaceable() {
    std::erase_if(files_, [this](const FoundDatabase& file) {
        const std::string folder = folderOf(file.path);
        if (::faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0) {
            if (file.kind == OldKind::kSetAside) return false;  // it gets another name first
            const std::string error = checkReplaceable(file.path, options_.removeOld);
            if (!error.empty()) complaints_.say(error, EX_IOERR);
            return !error.empty();
        }
        complaints_.say("cannot upgrade " + file.path + ": no right to write to " + folder + " (" +
                            std::strerror(errno) + "); run it as root, or as the owner of the folder",
                        EX_NOPERM);
        return true;
    });
}

int Run::showPlan(const std::vector<VolumeNeed>& volumes) {
    if (files_.empty()) {
        say("nothing to upgrade");
        return complaints_.code();
    }
    const std::string text =
        options_.json
            ? planJson(files_, volumes, options_.removeOld, archivePathFor, steps_.isEnough, steps_.freeBytes)
            : planText(files_, volumes, options_.removeOld, archivePathFor, steps_.freeBytes);
    if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
        complaints_.say(std::string("cannot write: ") + std::strerror(errno), EX_IOERR);
    }
    const auto problems = spaceProblems(volumes, options_.removeOld, steps_.isEnough, steps_.freeBytes);
    return problems.empty() ? complaints_.code() : refuse(problems);
}

int Run::refuse(const std::vector<std::string>& problems) {
    for (const std::string& problem : problems)
        complaints_.say(problem, EX_CANTCREAT);
    return EX_CANTCREAT;
}

int Run::stoppedBefore() {
    complaints_.say("stopped before anything was begun", EX_TEMPFAIL);
    return EX_TEMPFAIL;
}

int Run::upgradeAll() {
    if (files_.empty()) {
        if (complaints_.code() == EX_OK) say("nothing to upgrade");
        return complaints_.code();
    }
    size_t done = 0;
    size_t failed = 0;
    for (const FoundDatabase& file : files_) {
        if (stop_) break;
        const UpgradeEnd end = upgradeOne(file, done + failed + 1);
        if (end == UpgradeEnd::kStopped) break;
        ++(end == UpgradeEnd::kDone ? done : failed);
    }
    const size_t left = files_.size() - done - failed;
    if (files_.size() > 1) saySummary(done, failed, left);
    return left > 0 ? EX_TEMPFAIL : complaints_.code();
}

bool Run::adopt(FoundDatabase& file) {
    const Adoption adoption = adoptSetAside(file.path);
    if (!adoption.error.empty()) {
        complaints_.say(adoption.error, EX_IOERR);
        return false;
    }
    say(file.path + ": is " + adoption.path + " from now on", adoption.path);
    file.path = adoption.path;
    file.kind = OldKind::kDatabase;
    return true;
}

/// Null, and said, when it cannot be used.
const WorkFolder* Run::workFolderOf(const std::string& path) {
    const std::string folder = steps_.workFolder(path);
    if (const auto known = workFolders_.find(folder); known != workFolders_.end()) return &known->second;
    WorkFolder opened;
    const std::string error = folder.empty() ? "there is no work folder" : opened.open(folder);
    if (!error.empty()) {
        complaints_.say("cannot upgrade " + path + ": " + error, EX_UNAVAILABLE);
        return nullptr;
    }
    return &workFolders_.emplace(folder, std::move(opened)).first->second;
}

UpgradeEnd Run::upgradeOne(FoundDatabase file, size_t number) {
    const WorkFolder* const work = workFolderOf(file.path);
    if (work == nullptr) return UpgradeEnd::kFailed;
    if (file.kind == OldKind::kSetAside && !adopt(file)) return UpgradeEnd::kFailed;
    display_.begin(file.path, number, files_.size());
    const UpgradeSteps::Upgrade& upgrade = file.kind == OldKind::kZip ? steps_.zip : steps_.database;
    const UpgradeOutcome outcome = upgrade(file.path, *work, options_.removeOld, display_);
    const double seconds = display_.seconds();
    display_.end();
    sayOutcome(file, outcome, seconds);
    return outcome.end;
}

void Run::sayOutcome(const FoundDatabase& file, const UpgradeOutcome& outcome, double seconds) {
    const std::string kept = keptNameOf(file.path);
    if (options_.json) sayAsItIs(fileJson(file.path, outcome, seconds, isFile(kept, file) ? kept : ""));
    switch (outcome.end) {
        case UpgradeEnd::kDone:
            if (!options_.json) sayDone(file, outcome, seconds);
            break;
        case UpgradeEnd::kStopped:
            complaints_.say(
                file.path + ": stopped at " + display_.standing() + "; run ombrel-upgrade again to go on",
                EX_TEMPFAIL);
            break;
        case UpgradeEnd::kFailed:
            complaints_.say(outcome.error, EX_IOERR);
            break;
    }
}

void Run::sayDone(const FoundDatabase& file, const UpgradeOutcome& outcome, double seconds) {
    std::string line = file.path + ": " + rowsAndRate(outcome, file.workRows, seconds);
    if (isFile(keptNameOf(file.path), file)) {
        line += ", the old file is " + nameOf(keptNameOf(file.path));
    } else if (!isFile(file.path, file)) {
        line += ", the old file is removed";
    }
    if (!outcome.notice.empty()) line += "; " + outcome.notice;
    say(line);
}

void Run::saySummary(size_t done, size_t failed, size_t left) {
    if (options_.json) return sayAsItIs(summaryJson(done, failed, left));
    std::string line = std::to_string(done) + " upgraded, " + std::to_string(failed) + " failed";
    if (left > 0) line += ", " + std::to_string(left) + " left to do";
    say(line);
}

}  // namespace

int runUpgrade(const UpgradeOptions& options, const UpgradeSteps& steps, const std::atomic<bool>& stop) {
    return Run(options, steps, stop).run();
}

}  // namespace ombrel
