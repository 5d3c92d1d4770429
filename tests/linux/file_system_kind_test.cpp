// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Which file systems count as images and as remote, by what the mount table says of them.
#include "linux/vesksdk/file_system_kind.h"

#include <gtest/gtest.h>

#include <string>

using namespace ombrel;

namespace {

struct Case {
    const char* name;
    const char* type;
    const char* source;
    unsigned deviceMajor;
    FileSystemKind expected;
};

class FileSystemKindOf : public ::testing::TestWithParam<Case> {};

TEST_P(FileSystemKindOf, IsToldByTypeSourceAndDevice) {
    const Case& one = GetParam();
    EXPECT_EQ(fileSystemKind(one.type, one.source, one.deviceMajor), one.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Mounts, FileSystemKindOf,
    ::testing::Values(Case{"Ext4Disk", "ext4", "/dev/sda1", 8, kFileSystemLocal},
                      Case{"Btrfs", "btrfs", "/dev/mapper/vg1-volume_1", 0, kFileSystemLocal},
                      Case{"Tmpfs", "tmpfs", "tmpfs", 0, kFileSystemLocal},
                      Case{"NoSource", "overlay", "", 0, kFileSystemLocal},
                      Case{"NtfsByFuse", "fuseblk", "/dev/sdb1", 8, kFileSystemLocal},
                      Case{"LocalFuse", "fuse.mergerfs", "a:b", 0, kFileSystemLocal},
                      Case{"FuseWithoutProgram", "fuse", "something", 0, kFileSystemLocal},
                      Case{"FolderNamedLoop", "ext4", "/dev/loopback-disk", 8, kFileSystemLocal},
                      Case{"LoopByMajor", "ext4", "/dev/disk/by-label/x", 7, kFileSystemImage},
                      Case{"LoopBySource", "xfs", "/dev/loop0", 0, kFileSystemImage},
                      Case{"LoopPartition", "vfat", "/dev/loop12p1", 259, kFileSystemImage},
                      Case{"OpticalDisc", "iso9660", "/dev/sr0", 11, kFileSystemImage},
                      Case{"Udf", "udf", "/dev/sr0", 11, kFileSystemImage},
                      Case{"Squashfs", "squashfs", "/dev/sdc", 8, kFileSystemImage},
                      Case{"FuseIso", "fuse.fuseiso", "fuseiso", 0, kFileSystemImage},
                      Case{"SquashFuse", "fuse.squashfuse", "squashfuse", 0, kFileSystemImage},
                      Case{"OldFuseIso", "fuse", "fuseiso#/srv/a.iso", 0, kFileSystemImage},
                      Case{"Nfs", "nfs", "host:/export", 0, kFileSystemRemote},
                      Case{"Nfs4", "nfs4", "host:/", 0, kFileSystemRemote},
                      Case{"Cifs", "cifs", "//host/share", 0, kFileSystemRemote},
                      Case{"Smb3", "smb3", "//host/share", 0, kFileSystemRemote},
                      Case{"NineP", "9p", "host", 0, kFileSystemRemote},
                      Case{"Ceph", "ceph", "mon:/", 0, kFileSystemRemote},
                      Case{"Afs", "afs", "#root", 0, kFileSystemRemote},
                      Case{"Lustre", "lustre", "mgs@tcp:/fs", 0, kFileSystemRemote},
                      Case{"Virtiofs", "virtiofs", "tag", 0, kFileSystemRemote},
                      Case{"Davfs", "fuse", "davfs#https://host/", 0, kFileSystemRemote},
                      Case{"Sshfs", "fuse.sshfs", "user@host:", 0, kFileSystemRemote},
                      Case{"OldSshfs", "fuse", "sshfs#user@host:", 0, kFileSystemRemote},
                      Case{"Glusterfs", "fuse.glusterfs", "host:/vol", 0, kFileSystemRemote},
                      Case{"Rclone", "fuse.rclone", "remote:", 0, kFileSystemRemote},
                      Case{"S3fs", "fuse.s3fs", "s3fs", 0, kFileSystemRemote},
                      Case{"AutomountNotYetMounted", "autofs", "systemd-1", 0, kFileSystemRemote},
                      Case{"RemoteWithLoopSource", "nfs", "/dev/loop0", 7, kFileSystemRemote}),
    [](const auto& one) { return std::string(one.param.name); });

}  // namespace
