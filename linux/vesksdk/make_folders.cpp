// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/vesksdk/make_folders.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "linux/common/error_record.h"

namespace ombrel {

namespace {

bool isFolder(const char* path) {
    struct stat info {};
    return ::stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

/// One folder; 0 or an errno. A folder that stands there already is left as it is.
int makeOne(const char* path, int uid, int gid, int mode) {
    if (::mkdir(path, static_cast<mode_t>(mode)) != 0) {
        const int failure = errno;
        // Whatever kept it from being made (it exists, a read-only file system): all is well if it is there.
        if (isFolder(path)) return 0;
        return failure == EEXIST ? ENOTDIR : failure;
    }
    if (uid < 0 && gid < 0) return 0;
    // -1 leaves one of the two alone. The new folder is ours, nobody can have put a link in its place
    // unless its parent is theirs already.
    return ::lchown(path, static_cast<uid_t>(uid), static_cast<gid_t>(gid)) == 0 ? 0 : errno;
}

}  // namespace

int makeFolders(const std::string& path, int uid, int gid, int mode) {
    int failure = path.empty() ? ENOENT : 0;
    for (std::size_t end = 0; failure == 0 && end < path.size();) {
        const std::size_t begin = path.find_first_not_of('/', end);
        if (begin == std::string::npos) break;
        end = std::min(path.find('/', begin), path.size());
        failure = makeOne(path.substr(0, end).c_str(), uid, gid, mode);
    }
    if (failure == 0) return 0;
    errno = failure;
    return fail(fromErrno(failure));
}

}  // namespace ombrel
