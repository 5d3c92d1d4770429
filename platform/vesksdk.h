// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Shared folders, file-system types, folders. Statuses are negative on failure unless said otherwise.
#pragma once

#include "platform/veskcore.h"

extern "C" {

/// A shared folder; more members may follow.
struct VESKSHARE {
    const char* path;
};

/// Looks a share up by name. A failing call may still have set `*share`, which is then released too.
VESK_EXPORT int VESKShareGet(const char* name, VESKSHARE** share);
/// Appends the names of the shares to `*list`; `flags` is 513. -1 on failure.
VESK_EXPORT int VESKShareEnum(VLIBSZLIST** list, int flags);
/// Releases a share; null is allowed.
VESK_EXPORT void VESKShareFree(VESKSHARE* share);

/// The type code of the file system that holds `path`; negative when it cannot be told. `flags` is 0.
VESK_EXPORT int VESKGetFSType(const char* path, int flags);
/// Nonzero for a disk-image file system (loop-mounted, iso9660, udf, squashfs, ...).
VESK_EXPORT int VESKFSIsImageFS(int type);
/// Nonzero for a network file system (nfs, cifs, 9p, sshfs, ...).
VESK_EXPORT int VESKFSIsRemoteFS(int type);

/// Creates a folder with all missing parents; an existing folder is a success.
/// @param a, b      accepted, without effect on plain Linux
/// @param uid, gid  owner and group of the folders made, -1 leaves them
/// @param mode      permission bits of the folders made, subject to the umask
/// @return negative on failure, with `errno` set
VESK_EXPORT int VESKFSMkdirP(const char* path, int a, int b, int uid, int gid, int mode);

}  // extern "C"
