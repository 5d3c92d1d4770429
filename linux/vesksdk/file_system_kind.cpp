// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/vesksdk/file_system_kind.h"

#include <algorithm>
#include <array>

namespace ombrel {

namespace {

using namespace std::string_view_literals;

constexpr unsigned kLoopMajor = 7;  // "Block devices: 7 loopback devices", devices.txt of the kernel

constexpr std::array kImageTypes{"cramfs"sv, "erofs"sv, "iso9660"sv, "romfs"sv, "squashfs"sv, "udf"sv};

// An automount point that shows itself could not be mounted on: mostly a machine that does not answer.
constexpr std::array kRemoteTypes{"9p"sv,   "afs"sv,   "autofs"sv,   "beegfs"sv,    "ceph"sv,   "cifs"sv,
                                  "coda"sv, "davfs"sv, "gpfs"sv,     "glusterfs"sv, "lustre"sv, "ncpfs"sv,
                                  "nfs"sv,  "nfs4"sv,  "orangefs"sv, "pvfs2"sv,     "shfs"sv,   "smb2"sv,
                                  "smb3"sv, "smbfs"sv, "virtiofs"sv};

// A file system in user space is told by its program. The same programs without "fuse." in front appear
// where a mount helper sets the type.
constexpr std::array kImagePrograms{"archivemount"sv, "erofsfuse"sv,  "ext4fuse"sv,     "fuse-archive"sv,
                                    "fuse-zip"sv,     "fuse2fs"sv,    "fuseext2"sv,     "fuseiso"sv,
                                    "fuseiso9660"sv,  "guestmount"sv, "isofuse"sv,      "mount-zip"sv,
                                    "ratarmount"sv,   "squashfuse"sv, "squashfuse_ll"sv};

constexpr std::array kRemotePrograms{
    "blobfuse"sv,  "blobfuse2"sv,  "ceph-fuse"sv,   "cephfs"sv,    "curlftpfs"sv, "davfs"sv,
    "davfs2"sv,    "dropboxfs"sv,  "gcsfuse"sv,     "geesefs"sv,   "glusterfs"sv, "google-drive-ocamlfuse"sv,
    "goofys"sv,    "gvfsd-fuse"sv, "hdfs"sv,        "httpdirfs"sv, "httpfs"sv,    "httpfs2"sv,
    "juicefs"sv,   "lizardfs"sv,   "mfs"sv,         "moosefs"sv,   "mount-s3"sv,  "mountpoint-s3"sv,
    "onedriver"sv, "rclone"sv,     "s3fs"sv,        "s3ql"sv,      "saunafs"sv,   "seaweedfs"sv,
    "smbnetfs"sv,  "sshfs"sv,      "vmhgfs-fuse"sv, "wdfs"sv};

template <std::size_t N>
bool holds(const std::array<std::string_view, N>& names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

/// "sshfs" of "fuse.sshfs"; of a bare "fuse", as old helpers mount, that of "sshfs#host:/folder".
std::string_view programOf(std::string_view type, std::string_view source) {
    constexpr std::string_view kFuse = "fuse";
    if (type == kFuse) return source.substr(0, std::min(source.find('#'), source.size()));
    if (type.starts_with("fuse.")) return type.substr(kFuse.size() + 1);
    return type;
}

bool isLoopDevice(std::string_view source) {
    constexpr std::string_view kPrefix = "/dev/loop";
    return source.size() > kPrefix.size() && source.starts_with(kPrefix) && source[kPrefix.size()] >= '0' &&
           source[kPrefix.size()] <= '9';
}

}  // namespace

FileSystemKind fileSystemKind(std::string_view type, std::string_view source, unsigned deviceMajor) {
    const std::string_view program = programOf(type, source);
    if (holds(kRemoteTypes, type) || holds(kRemotePrograms, program)) return kFileSystemRemote;
    // The partitions of a loop device have another major number, so its name is asked too.
    if (deviceMajor == kLoopMajor || isLoopDevice(source)) return kFileSystemImage;
    if (holds(kImageTypes, type) || holds(kImagePrograms, program)) return kFileSystemImage;
    return kFileSystemLocal;
}

}  // namespace ombrel
