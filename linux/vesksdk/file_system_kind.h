// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Whether logs may be kept on a file system: neither an image that somebody may take away nor a machine on
// the network will do. Pure questions about names; mount_table.h asks the system for them.
#pragma once

#include <string_view>

namespace ombrel {

/// The type codes of VESKGetFSType.
enum FileSystemKind : int { kFileSystemLocal = 1, kFileSystemImage = 2, kFileSystemRemote = 3 };

/// @param type         as in the mount table: "ext4", "fuse.sshfs"
/// @param source       as in the mount table: "/dev/loop0p1", "sshfs#host:"
/// @param deviceMajor  of the device number of the files in it
FileSystemKind fileSystemKind(std::string_view type, std::string_view source, unsigned deviceMajor);

}  // namespace ombrel
