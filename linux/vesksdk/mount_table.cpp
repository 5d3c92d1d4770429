// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/vesksdk/mount_table.h"

#include <fcntl.h>
#include <libmount/libmount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <memory>

#include "linux/common/error_record.h"
#include "linux/vesksdk/file_system_kind.h"

namespace ombrel {

namespace {

struct TableFree {
    void operator()(libmnt_table* table) const noexcept { mnt_unref_table(table); }
};
struct IteratorFree {
    void operator()(libmnt_iter* iterator) const noexcept { mnt_free_iter(iterator); }
};
using Table = std::unique_ptr<libmnt_table, TableFree>;
using Iterator = std::unique_ptr<libmnt_iter, IteratorFree>;

std::string_view orEmpty(const char* text) {
    return text != nullptr ? text : "";
}

/// The mount by its id, which also tells mounts apart that hide one another; where the path's mount is not in
/// our table (it was detached), another one of the same device.
libmnt_fs* findMount(libmnt_table* table, const struct statx& info) {
    const Iterator iterator(mnt_new_iter(MNT_ITER_FORWARD));
    if (!iterator) return nullptr;
    libmnt_fs* mount = nullptr;
    while (mnt_table_next_fs(table, iterator.get(), &mount) == 0) {
        if (static_cast<unsigned long long>(mnt_fs_get_id(mount)) == info.stx_mnt_id) return mount;
    }
    return mnt_table_find_devno(table, makedev(info.stx_dev_major, info.stx_dev_minor), MNT_ITER_BACKWARD);
}

}  // namespace

int fileSystemKindOf(const char* path) {
    struct statx info {};
    // What an automount point stands for is known only once it is mounted, hence no AT_NO_AUTOMOUNT.
    if (::statx(AT_FDCWD, path, 0, STATX_MNT_ID, &info) != 0) return fail(fromErrno(errno));
    const Table table(mnt_new_table());
    if (!table) return fail(kErrorOutOfMemory);
    // The kernel's own table: the one of mount(8) in /run knows only what mount(8) did.
    const int result = mnt_table_parse_file(table.get(), "/proc/self/mountinfo");
    if (result != 0) {
        errno = result < 0 ? -result : EIO;
        return fail(fromErrno(errno));
    }
    libmnt_fs* mount = findMount(table.get(), info);
    if (mount == nullptr) {
        errno = ENODEV;
        return fail(kErrorNotFound);
    }
    return fileSystemKind(orEmpty(mnt_fs_get_fstype(mount)), orEmpty(mnt_fs_get_srcpath(mount)),
                          info.stx_dev_major);
}

}  // namespace ombrel
