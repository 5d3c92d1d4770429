// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "platform/vesksdk.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "linux/common/error_record.h"
#include "linux/vesksdk/file_system_kind.h"
#include "linux/vesksdk/make_folders.h"
#include "linux/vesksdk/mount_table.h"
#include "linux/vesksdk/samba_shares.h"

using namespace ombrel;

namespace {

/// The record that is handed out, with what its members point into.
struct OwnedShare : VESKSHARE {
    explicit OwnedShare(std::string shared) : VESKSHARE{nullptr}, text(std::move(shared)) { path = text.c_str(); }
    std::string text;
};

int shareGet(const char* name, VESKSHARE** share) {
    std::vector<Share> shares;
    if (readShares(shares, Reuse::kJustRead) != 0) return -1;
    const auto found = std::find_if(shares.begin(), shares.end(),
                                    [&](const Share& one) { return sameShareName(one.name, name); });
    if (found == shares.end()) return fail(kErrorNotFound);
    *share = new OwnedShare(std::move(found->path));
    return 0;
}

int shareEnum(VLIBSZLIST** list) {
    std::vector<Share> shares;
    if (readShares(shares, Reuse::kNothing) != 0) return -1;
    for (const Share& share : shares) {
        if (VLIBCSzListPush(list, share.name.c_str()) < 0) return -1;
    }
    return 0;
}

}  // namespace

extern "C" {

int VESKShareGet(const char* name, VESKSHARE** share) {
    if (name == nullptr || *name == '\0' || share == nullptr) return fail(kErrorInvalidArgument);
    try {
        return shareGet(name, share);
    } catch (const std::exception&) {
        return fail(kErrorOutOfMemory);
    }
}

int VESKShareEnum(VLIBSZLIST** list, int /*flags*/) {
    if (list == nullptr || *list == nullptr) return fail(kErrorInvalidArgument);
    try {
        return shareEnum(list);
    } catch (const std::exception&) {
        return fail(kErrorOutOfMemory);
    }
}

void VESKShareFree(VESKSHARE* share) {
    delete static_cast<OwnedShare*>(share);
}

int VESKGetFSType(const char* path, int /*flags*/) {
    if (path == nullptr) return fail(kErrorInvalidArgument);
    return fileSystemKindOf(path);
}

int VESKFSIsImageFS(int type) {
    return type == kFileSystemImage ? 1 : 0;
}

int VESKFSIsRemoteFS(int type) {
    return type == kFileSystemRemote ? 1 : 0;
}

int VESKFSMkdirP(const char* path, int /*a*/, int /*b*/, int uid, int gid, int mode) {
    if (path == nullptr) {
        errno = EINVAL;
        return fail(kErrorInvalidArgument);
    }
    try {
        return makeFolders(path, uid, gid, mode);
    } catch (const std::exception&) {
        errno = ENOMEM;
        return fail(kErrorOutOfMemory);
    }
}

}  // extern "C"
