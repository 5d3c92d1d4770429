// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What stands in the file system: one entry, or the entries of a folder.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "linux/common/fd.h"
#include "linux/veskcore/guarded.h"

using namespace ombrel;

namespace {

constexpr int kSubFolders = 0x40;

struct DirClose {
    void operator()(DIR* dir) const noexcept { (void)::closedir(dir); }  // it was only read
};
using Dir = std::unique_ptr<DIR, DirClose>;

Dir openDir(const char* path) {
    Fd fd(::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd) return nullptr;
    Dir dir(::fdopendir(fd.get()));
    if (dir) (void)fd.release();  // closedir closes it
    return dir;
}

/// Some file systems do not tell the type with the name. An entry that is gone by now is no folder.
bool isRealFolder(DIR* dir, const dirent& entry) {
    if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
    struct stat info {};
    if (::fstatat(::dirfd(dir), entry.d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) return false;
    return S_ISDIR(info.st_mode);
}

int subFoldersOf(const char* path, std::vector<std::string>& names) {
    const Dir dir = openDir(path);
    if (!dir) return fail(fromErrno(errno));
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(dir.get());
        if (entry == nullptr) break;
        const std::string name = entry->d_name;
        if (name != "." && name != ".." && isRealFolder(dir.get(), *entry)) names.push_back(name);
    }
    if (errno != 0) return fail(fromErrno(errno));
    std::sort(names.begin(), names.end());  // the same order on every file system
    return 0;
}

}  // namespace

extern "C" {

int VLIBCFileExist(const char* path) {
    if (path == nullptr) return fail(kErrorInvalidArgument);
    struct stat info {};
    if (::lstat(path, &info) == 0) return 1;
    if (errno == ENOENT || errno == ENOTDIR) return 0;
    return fail(fromErrno(errno));  // it cannot be told
}

int VLIBCFileEnumDir(const char* dir, int flags, VLIBSZLIST** list, int typeMask) {
    if (dir == nullptr || list == nullptr || *list == nullptr || flags != 0 || typeMask != kSubFolders) {
        return fail(kErrorInvalidArgument);
    }
    return guarded([&] {
        std::vector<std::string> names;
        if (subFoldersOf(dir, names) != 0) return -1;
        for (const std::string& name : names) {
            if (VLIBCSzListPush(list, name.c_str()) < 0) return -1;
        }
        return 0;
    });
}

}  // extern "C"
