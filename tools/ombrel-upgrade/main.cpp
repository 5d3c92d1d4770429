// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include <fcntl.h>
#include <sys/statvfs.h>
#include <sysexits.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "linux/common/text_escape.h"
#include "ombrel/utils.h"
#include "tools/ombrel-upgrade/upgrade_database.h"
#include "tools/ombrel-upgrade/upgrade_options.h"
#include "tools/ombrel-upgrade/upgrade_run.h"
#include "tools/ombrel-upgrade/upgrade_zip.h"

namespace {

std::atomic<bool> stopAsked{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void askToStop(int /*signal*/) {
    stopAsked = true;
}

/// The second signal ends the program at once, which does no harm either. What the parent had ignored stays so.
bool stopOn(int signal) {
    struct sigaction before {};
    if (::sigaction(signal, nullptr, &before) != 0) return false;
    if (before.sa_handler == SIG_IGN) return true;
    struct sigaction action {};
    action.sa_handler = askToStop;
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    return ::sigaction(signal, &action, nullptr) == 0;
}

/// An output that is closed early ends nothing, and a file that may grow no further is told of like a full disk.
bool takeSignals() {
    return stopOn(SIGINT) && stopOn(SIGTERM) && stopOn(SIGHUP) && std::signal(SIGPIPE, SIG_IGN) != SIG_ERR &&
           std::signal(SIGXFSZ, SIG_IGN) != SIG_ERR;
}

/// Where the standard descriptors are closed, the next file that is opened would get what is written to them.
bool haveStandardDescriptors() {
    for (int fd = 0; fd <= STDERR_FILENO; ++fd) {
        if (::fcntl(fd, F_GETFD) < 0 && ::open("/dev/null", O_RDWR) != fd) return false;
    }
    return true;
}

unsigned long long freeBytes(const std::string& folder) {
    struct statvfs status {};
    if (::statvfs(folder.c_str(), &status) != 0) return 0;
    return static_cast<unsigned long long>(status.f_bavail) * status.f_frsize;
}

/// To ask what is in it; whoever works in it has it locked.
ombrel::WorkFolder workFolderAsked(const std::string& path) {
    return ombrel::WorkFolder(ombrel::workFolderFor(path));
}

ombrel::UpgradeSteps realSteps() {
    using ombrel::UpgradeWatch;
    using ombrel::WorkFolder;
    ombrel::UpgradeSteps steps;
    steps.database = [](const std::string& path, const WorkFolder& work, bool removeOld, UpgradeWatch& watch) {
        return ombrel::upgradeDatabase(path, work, removeOld, watch);
    };
    steps.zip = [](const std::string& path, const WorkFolder& work, bool removeOld, UpgradeWatch& watch) {
        return ombrel::upgradeZip(path, work, removeOld, watch);
    };
    steps.workFolder = ombrel::workFolderFor;
    steps.probes = {ombrel::oldDatabasesInZip,
                    [](const std::string& path) { return ombrel::newDatabaseFor(path, workFolderAsked(path)); },
                    [](const std::string& path) { return workFolderAsked(path).bytesFor(path); }};
    steps.isEnough = IsVolumeSpaceEnough;
    steps.freeBytes = freeBytes;
    return steps;
}

void complain(const std::string& what) {
    (void)std::fprintf(stderr, "ombrel-upgrade: %s\n", ombrel::escapeForLine(what).c_str());
}

}  // namespace

int main(int argc, char** argv) try {
    if (!haveStandardDescriptors()) return EX_SOFTWARE;
    ombrel::UpgradeOptions options;
    if (const std::string wrong = ombrel::readUpgradeOptions(argc, argv, options); !wrong.empty()) {
        complain(wrong + "; --help says more");
        return EX_USAGE;
    }
    if (options.help) {
        return std::fputs(ombrel::kUpgradeUsage, stdout) >= 0 && std::fflush(stdout) == 0 ? EX_OK : EX_IOERR;
    }
    if (!takeSignals()) {
        complain(std::string("no signals: ") + std::strerror(errno));
        return EX_SOFTWARE;
    }
    return ombrel::runUpgrade(options, realSteps(), stopAsked);
} catch (const std::exception& failure) {
    complain(std::string("ends: ") + failure.what());
    return EX_SOFTWARE;
}
