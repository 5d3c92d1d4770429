// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/work_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "linux/common/folder_stream.h"
#include "linux/common/path_parts.h"
#include "ombrel/postprocessor.h"
#include "ombrel/utils_updater.h"

namespace ombrel {

namespace {

constexpr const char* kName = "ombrel-upgrade";

// By the same mount, too: where a folder is mounted a second time, a rename from one to the other is refused.
bool isOnSameFileSystem(const std::string& a, const std::string& b) {
    struct statx first {};
    struct statx second {};
    if (::statx(AT_FDCWD, a.c_str(), 0, STATX_INO | STATX_MNT_ID, &first) != 0) return false;
    if (::statx(AT_FDCWD, b.c_str(), 0, STATX_INO | STATX_MNT_ID, &second) != 0) return false;
    const bool knowsMounts = (first.stx_mask & second.stx_mask & STATX_MNT_ID) != 0;
    return first.stx_dev_major == second.stx_dev_major && first.stx_dev_minor == second.stx_dev_minor &&
           (!knowsMounts || first.stx_mnt_id == second.stx_mnt_id);
}

/// The scratch folder of the log databases' volume, or that of the volume that `path` names.
std::string scratchFolderFor(const std::string& path) {
    constexpr std::string_view kScratch = "/@tmp/";
    std::string folder = SyslogUpdaterVolTmpFolderGet();
    if (folder.size() > kScratch.size()) {
        const std::string volume = folder.substr(0, folder.size() - kScratch.size());
        if (path.starts_with(volume + "/")) return folder;
    }
    return PostProcessor().TranTempDirGet(path);
}

// Whoever is not root may find a scratch folder, or a work folder in it, that is root's. Where others can rename
// what is in it, they could put another work folder in the place of ours.
bool isOurs(const std::string& scratch) {
    struct stat work {};
    struct stat above {};
    if (::access(scratch.c_str(), W_OK | X_OK) != 0 || ::stat(scratch.c_str(), &above) != 0) return false;
    if (above.st_uid != 0 && above.st_uid != ::geteuid()) return false;
    if ((above.st_mode & 022) != 0 && (above.st_mode & S_ISVTX) == 0) return false;
    return ::lstat((scratch + kName).c_str(), &work) != 0 || work.st_uid == ::geteuid();
}

std::string wrong(const std::string& folder, const std::string& why) {
    return "cannot use the folder " + folder + ": " + why;
}

}  // namespace

std::string workFolderFor(const std::string& path) {
    const std::string scratch = scratchFolderFor(path);
    if (!scratch.empty() && isOnSameFileSystem(scratch, folderOf(path)) && isOurs(scratch)) return scratch + kName;
    return folderOf(path) + "/." + kName;
}

WorkFolder::~WorkFolder() {
    if (lock_) (void)::rmdir(path_.c_str());  // stays when something is left for the next run
}

std::string WorkFolder::open(const std::string& folder) {
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return wrong(folder, std::strerror(errno));
    Fd lock(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!lock || ::fstat(lock.get(), &status) != 0) return wrong(folder, std::strerror(errno));
    // The scratch folder may be open to everybody: what somebody else can change would get among the archives.
    if (status.st_uid != ::geteuid() || (status.st_mode & 022) != 0) {
        return wrong(folder, "others can write to it; remove it");
    }
    if (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        return wrong(folder, "another ombrel-upgrade is at work there; wait until it has ended");
    }
    // It may have been taken away, by the program that had it, before it was locked.
    struct stat now {};
    if (::lstat(folder.c_str(), &now) != 0 || now.st_dev != status.st_dev || now.st_ino != status.st_ino) {
        return wrong(folder, "another ombrel-upgrade was at work there; run this again");
    }
    path_ = folder;
    lock_ = std::move(lock);
    return {};
}

// A number of a file that is gone is given to another one; the time of birth tells them apart where the file
// system knows it, and the time of the last change elsewhere.
std::string WorkFolder::placeFor(const std::string& path, const char* extension) const {
    struct statx file {};
    if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_INO | STATX_BTIME | STATX_MTIME, &file) != 0) {
        return {};
    }
    const statx_timestamp& time = (file.stx_mask & STATX_BTIME) != 0 ? file.stx_btime : file.stx_mtime;
    return path_ + "/" + std::to_string(file.stx_ino) + "-" + std::to_string(time.tv_sec) + "." +
           std::to_string(time.tv_nsec) + extension;
}

unsigned long long WorkFolder::bytesFor(const std::string& path) const {
    const std::string place = placeFor(path, ".");
    const FolderStream stream(place.empty() ? nullptr : ::opendir(path_.c_str()));
    if (stream == nullptr) return 0;
    unsigned long long bytes = 0;
    while (const dirent* const entry = ::readdir(stream.get())) {
        struct stat status {};
        if (!std::string_view(entry->d_name).starts_with(nameOf(place))) continue;
        if (::fstatat(::dirfd(stream.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
        bytes += static_cast<unsigned long long>(status.st_size);
    }
    return bytes;
}

}  // namespace ombrel
