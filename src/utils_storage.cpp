// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The storage place: free space, usable shares, moving a database file.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>

#include "ombrel/utils.h"
#include "platform/veskfileop.h"
#include "src/platform_handles.h"

namespace {

using ombrel::lend;
using ombrel::List;
using ombrel::Share;

constexpr int kShareListEntries = 512;
constexpr int kShareEnumFlags = 513;
constexpr int kMostUntoldNames = 100;

/// The log database may lie neither on a disk image nor on a network file system.
bool isShareUsable(const char* name) {
    Share share;
    const int found = lend(share, [&](VESKSHARE** out) { return VESKShareGet(name, out); });
    if (found < 0 || share == nullptr) return false;
    const int type = VESKGetFSType(share->path, 0);
    return type >= 0 && VESKFSIsImageFS(type) == 0 && VESKFSIsRemoteFS(type) == 0;
}

/// Holds on to the file that a path names, so that its inode number cannot be given to a new file that
/// another program begins at the same path. The descriptor is path-only: closing it drops no lock that
/// this process holds on the file.
class FilePin {
public:
    explicit FilePin(const std::string& path) : fd_(::open(path.c_str(), O_PATH | O_CLOEXEC)) {
        if (fd_ < 0 || fstat64(fd_, &status_) != 0) error_ = errno;
    }
    ~FilePin() {
        if (fd_ >= 0) (void)::close(fd_);
    }
    FilePin(const FilePin&) = delete;
    FilePin& operator=(const FilePin&) = delete;

    /// 0, or why there is nothing to hold.
    [[nodiscard]] int error() const { return error_; }
    [[nodiscard]] bool isSameFile(const FilePin& other) const {
        return status_.st_dev == other.status_.st_dev && status_.st_ino == other.status_.st_ino;
    }

private:
    int fd_;
    int error_ = 0;
    struct stat64 status_ {};
};

/// Removes `path` as long as it names the file that was copied. The copy may have removed it already, and
/// a program may have begun a new file there.
int removeSource(const std::string& path, const FilePin& copied) {
    if (copied.error() != 0) return 0;
    const FilePin now(path);
    if (now.error() == ENOENT) return 0;
    if (now.error() != 0) return -1;
    if (!now.isSameFile(copied)) return 0;
    return ::unlink(path.c_str()) == 0 || errno == ENOENT ? 0 : -1;
}

int copyAndRemove(const std::string& from, const std::string& to) {
    VESK_COPY_OPTIONS options{};
    options.flag1 = 1;
    options.flag2 = 1;
    options.flag3 = 1;
    options.flag4 = 1;
    const FilePin source(from);
    // Without the pin a source that the copy leaves could not be removed, and its rows would be archived again.
    if (source.error() != 0 && source.error() != ENOENT) return -1;
    if (VESKFileCopy(from.c_str(), to.c_str(), &options) != 0) return -1;
    return removeSource(from, source);
}

/// The first of PATH_0, PATH_1, ... that does not exist. Empty when that could not be told of many of them:
/// then it will be told of none, since the name is too long with any number or the disk fails.
std::string freeBackupName(const std::string& path) {
    int untold = 0;
    for (unsigned long long n = 0; untold < kMostUntoldNames; ++n) {
        std::string name = path + "_" + std::to_string(n);
        const int exists = VLIBCFileExist(name.c_str());
        if (exists == 0) return name;
        if (exists < 0) ++untold;
    }
    return {};
}

int putAside(const std::string& path) {
    const std::string backup = freeBackupName(path);
    return backup.empty() ? -1 : copyAndRemove(path, backup);
}

std::string folderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

}  // namespace

bool IsVolumeSpaceEnough(const std::string& path, unsigned long long bytes) {
    if (path.empty()) return false;
    struct statfs64 volume {};
    if (statfs64(path.c_str(), &volume) != 0) return false;
    return bytes <= static_cast<unsigned long long>(volume.f_bsize) * volume.f_bavail;
}

bool SyslogIsShareValid(const std::string& shareName) {
    return !shareName.empty() && isShareUsable(shareName.c_str());
}

int SyslogAvailShareGet(VLIBSZLIST** shares) {
    if (shares == nullptr || *shares == nullptr) return -1;
    List names(VLIBCSzListAlloc(kShareListEntries));
    if (names == nullptr) return -1;
    if (lend(names, [](VLIBSZLIST** list) { return VESKShareEnum(list, kShareEnumFlags); }) == -1) return -1;
    for (int i = 0; i < names->count; ++i) {
        const char* name = VLIBCSzListGet(names.get(), i);
        if (name == nullptr || *name == '\0' || !isShareUsable(name)) continue;
        (void)VLIBCSzListPush(shares, name);  // a name that found no room is not offered
    }
    return 0;
}

int SyslogDBFileMove(const std::string& source, const std::string& destination) {
    if (destination.empty()) return -2;
    if (source.empty() || source == destination || VLIBCFileExist(source.c_str()) == 0) return 0;
    struct stat64 status {};
    if (stat64(source.c_str(), &status) != 0) return -1;
    if (!IsVolumeSpaceEnough(folderOf(destination), static_cast<unsigned long long>(status.st_size))) return -5;
    if (VLIBCFileExist(destination.c_str()) != 0 && putAside(destination) < 0) return -1;
    return copyAndRemove(source, destination);
}
