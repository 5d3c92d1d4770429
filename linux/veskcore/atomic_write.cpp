// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/veskcore/atomic_write.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <vector>

#include "linux/common/error_record.h"
#include "linux/common/fd.h"
#include "linux/common/sync_folder.h"
#include "linux/common/write_all.h"

namespace ombrel {
namespace {

// Hidden, so that programs which read a whole folder of settings pass it over.
constexpr const char* kTemporaryName = ".ombrel-settings.tmp";

/// Removes the temporary file unless it has become the real one.
class Temporary {
public:
    explicit Temporary(int folder) : folder_(folder) {}
    ~Temporary() {
        const int keptErrno = errno;
        if (fd_) (void)::unlinkat(folder_, kTemporaryName, 0);  // the failure that led here is what counts
        errno = keptErrno;
    }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;

    bool create() {
        (void)::unlinkat(folder_, kTemporaryName, 0);  // what a killed writer left; mostly nothing
        fd_.reset(::openat(folder_, kTemporaryName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        return static_cast<bool>(fd_);
    }
    [[nodiscard]] int get() const { return fd_.get(); }
    bool renameTo(const std::string& name) {
        if (::renameat(folder_, kTemporaryName, folder_, name.c_str()) != 0) return false;
        fd_.reset();
        return true;
    }

private:
    int folder_;
    Fd fd_;
};

/// Carries the extended attributes over. Without the access lists the permission bits would grant more
/// than before, so that failure counts; labels that only the system may set do not.
bool copyAttributes(int from, int to) {
    const ssize_t size = ::flistxattr(from, nullptr, 0);
    if (size < 0) return errno == ENOTSUP;
    std::vector<char> names(static_cast<std::size_t>(size));
    const ssize_t listed = ::flistxattr(from, names.data(), names.size());
    if (listed < 0) return false;
    std::vector<char> value;
    for (const char* name = names.data(); name < names.data() + listed;
         name += std::string_view(name).size() + 1) {
        const ssize_t length = ::fgetxattr(from, name, nullptr, 0);
        if (length < 0) return false;
        value.resize(static_cast<std::size_t>(length));
        if (::fgetxattr(from, name, value.data(), value.size()) != length) return false;
        const bool systemLabel =
            !std::string_view(name).starts_with("system.") && !std::string_view(name).starts_with("user.");
        if (::fsetxattr(to, name, value.data(), value.size(), 0) != 0 && !systemLabel) return false;
    }
    return true;
}

/// The owner first: a change of owner clears the set-id bits.
bool inherit(int to, int from) {
    struct stat info {};
    if (::fstat(from, &info) != 0) return false;
    struct stat own {};
    if (::fstat(to, &own) != 0) return false;
    if ((own.st_uid != info.st_uid || own.st_gid != info.st_gid) && ::fchown(to, info.st_uid, info.st_gid) != 0) {
        return false;
    }
    return copyAttributes(from, to) && ::fchmod(to, info.st_mode & 07777) == 0;
}

}  // namespace

int replaceFile(int folder, const std::string& name, std::string_view bytes, int old, mode_t mode) {
    Temporary temporary(folder);
    if (!temporary.create()) return fail(fromErrno(errno));
    const bool dressed = old >= 0 ? inherit(temporary.get(), old) : ::fchmod(temporary.get(), mode) == 0;
    if (!dressed) return fail(fromErrno(errno));
    if (!writeAll(temporary.get(), bytes)) return fail(fromErrno(errno));
    if (::fsync(temporary.get()) != 0) return fail(fromErrno(errno));
    if (!temporary.renameTo(name)) return fail(fromErrno(errno));
    if (!syncFolder(folder)) return fail(fromErrno(errno));
    return 0;
}

}  // namespace ombrel
