// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/zip_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "linux/common/text_escape.h"

namespace ombrel {

namespace {

constexpr mode_t kOwnerAlone = 0600;

bool isSameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

ZipEntry describe(zip_t* archive, zip_uint64_t index, const zip_stat_t& status) {
    ZipEntry entry;
    entry.index = index;
    if (const char* name = zip_get_name(archive, index, ZIP_FL_ENC_RAW)) entry.name = name;
    entry.size = status.size;
    entry.packedSize = status.comp_size;
    entry.crc = status.crc;
    entry.method = status.comp_method;
    entry.encryption = status.encryption_method;
    entry.changed = status.mtime;
    (void)zip_file_get_external_attributes(archive, index, 0, &entry.system, &entry.attributes);  // index is valid
    zip_uint32_t length = 0;
    const char* comment = zip_file_get_comment(archive, index, &length, ZIP_FL_ENC_RAW);
    if (comment != nullptr) entry.comment.assign(comment, length);
    return entry;
}

}  // namespace

const char* adviceFor(int systemCode) noexcept {
    switch (systemCode) {
        case ENOSPC:
        case EDQUOT:
            return "make room on its volume and run ombrel-upgrade again";
        case EFBIG:
            return "the file system or a limit allows no file of that size";
        case EACCES:
        case EPERM:
        case EROFS:
            return "make the folder writable and run ombrel-upgrade again";
        default:
            return "mend that and run ombrel-upgrade again";
    }
}

ZipFile::~ZipFile() {
    if (archive_ != nullptr) zip_discard(archive_);
    zip_error_fini(&error_);
}

std::string ZipFile::open(const std::string& path) {
    path_ = path;
    const std::string shown = escapeForLine(path);
    from_.reset(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    const bool isLink = !from_ && errno == ELOOP;
    if (!isLink && (!from_ || ::fstat(from_.get(), &status_) != 0)) {
        return "cannot open " + shown + ": " + std::strerror(errno);
    }
    if (isLink || !S_ISREG(status_.st_mode)) return "cannot read " + shown + ": it is no regular file";
    return readArchive();
}

std::string ZipFile::readArchive() {
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* source = zip_source_function_create(command, this, &error);
    archive_ = source != nullptr ? zip_open_from_source(source, 0, &error) : nullptr;
    if (archive_ == nullptr) zip_source_free(source);
    const std::string why = archive_ != nullptr ? readEntries() : zip_error_strerror(&error);
    zip_error_fini(&error);
    return why.empty() ? why : "cannot read " + escapeForLine(path_) + ": " + escapeForLine(why) + "; " + kTestZip;
}

std::string ZipFile::readEntries() {
    const zip_int64_t count = zip_get_num_entries(archive_, 0);
    auto room = static_cast<zip_uint64_t>(status_.st_size);
    entries_.clear();
    entries_.reserve(static_cast<std::size_t>(count));
    for (zip_uint64_t index = 0; index < static_cast<zip_uint64_t>(count); ++index) {
        zip_stat_t status;
        if (zip_stat_index(archive_, index, 0, &status) != 0) return zip_strerror(archive_);
        entries_.push_back(describe(archive_, index, status));
        // Entries that share their bytes would grow without bound when each gets bytes of its own.
        if (status.comp_size > room) return "its entries overlap";
        room -= status.comp_size;
    }
    return {};
}

std::string ZipFile::comment() const {
    int length = 0;
    const char* text = zip_get_archive_comment(archive_, &length, ZIP_FL_ENC_RAW);
    return text != nullptr ? std::string(text, static_cast<std::size_t>(length)) : std::string();
}

bool ZipFile::hasChanged() const {
    struct stat now {};
    struct stat open {};
    return ::stat(path_.c_str(), &now) != 0 || ::fstat(from_.get(), &open) != 0 || !isSameFile(now, status_) ||
           !isSameFile(open, status_);
}

ZipStream ZipFile::read(const ZipEntry& entry, zip_flags_t flags, std::string& error) const {
    ZipStream stream(zip_fopen_index(archive_, entry.index, flags));
    if (!stream) error = wrong("read", entry, zip_strerror(archive_), kTestZip);
    return stream;
}

std::string ZipFile::wrong(const char* what, const ZipEntry& entry, const std::string& why,
                           const char* advice) const {
    return escapeForLine(path_) + ": cannot " + what + " the entry " + escapeForLine(entry.name) + ": " +
           escapeForLine(why) + "; " + advice;
}

int ZipFile::writeTo(const std::string& target, std::string& error) {
    target_ = target;
    if (zip_close(archive_) == 0) {
        error = readArchive();
        return error.empty() ? ZIP_ER_OK : ZIP_ER_READ;
    }
    zip_error_t* reason = zip_get_error(archive_);
    const int code = zip_error_code_zip(reason);
    const bool isWriting = code == ZIP_ER_WRITE || code == ZIP_ER_TMPOPEN;
    error = escapeForLine(path_) + ": cannot pack it anew: " + zip_error_strerror(reason) + "; " +
            (isWriting ? adviceFor(zip_error_code_system(reason)) : kTestZip);
    (void)zip_unchange_all(archive_);  // keeps what was read
    return code;
}

zip_int64_t ZipFile::command(void* self, void* data, zip_uint64_t length, zip_source_cmd_t what) noexcept {
    return static_cast<ZipFile*>(self)->run(data, length, what);
}

zip_int64_t ZipFile::run(void* data, zip_uint64_t length, zip_source_cmd_t what) noexcept {
    switch (what) {
        case ZIP_SOURCE_SUPPORTS:
            return ZIP_SOURCE_SUPPORTS_WRITABLE;
        case ZIP_SOURCE_OPEN:
            readAt_ = 0;
            return 0;
        case ZIP_SOURCE_READ:
            return readSome(data, length);
        case ZIP_SOURCE_CLOSE:
        case ZIP_SOURCE_FREE:
            return 0;
        case ZIP_SOURCE_STAT:
            return tell(data, length);
        case ZIP_SOURCE_ERROR:
            return zip_error_to_data(&error_, data, length);
        case ZIP_SOURCE_SEEK:
            return seek(readAt_, status_.st_size, data, length);
        case ZIP_SOURCE_TELL:
            return readAt_;
        case ZIP_SOURCE_BEGIN_WRITE:
            return beginWrite();
        case ZIP_SOURCE_WRITE:
            return writeSome(data, length);
        case ZIP_SOURCE_SEEK_WRITE:
            return seek(writeAt_, written_, data, length);
        case ZIP_SOURCE_TELL_WRITE:
            return writeAt_;
        case ZIP_SOURCE_COMMIT_WRITE:
            return endWrite(true);
        case ZIP_SOURCE_ROLLBACK_WRITE:
            return endWrite(false);
        default:
            return refuse(ZIP_ER_OPNOTSUPP, 0);
    }
}

zip_int64_t ZipFile::refuse(int code, int systemCode) noexcept {
    zip_error_set(&error_, code, systemCode);
    return -1;
}

zip_int64_t ZipFile::tell(void* data, zip_uint64_t length) noexcept {
    if (length < sizeof(zip_stat_t)) return refuse(ZIP_ER_INVAL, 0);
    auto* status = static_cast<zip_stat_t*>(data);
    zip_stat_init(status);
    status->size = static_cast<zip_uint64_t>(status_.st_size);
    status->mtime = status_.st_mtime;
    status->valid = ZIP_STAT_SIZE | ZIP_STAT_MTIME;
    return sizeof(zip_stat_t);
}

zip_int64_t ZipFile::readSome(void* data, zip_uint64_t length) noexcept {
    ssize_t count = 0;
    do {
        count = ::pread(from_.get(), data, length, readAt_);
    } while (count < 0 && errno == EINTR);
    if (count < 0) return refuse(ZIP_ER_READ, errno);
    readAt_ += count;
    if (onBytes_) onBytes_(count);
    return count;
}

zip_int64_t ZipFile::writeSome(const void* data, zip_uint64_t length) noexcept {
    const auto* bytes = static_cast<const char*>(data);
    for (zip_uint64_t done = 0; done < length;) {
        const ssize_t count = ::pwrite(to_.get(), bytes + done, length - done, writeAt_);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return refuse(ZIP_ER_WRITE, errno);
        done += static_cast<zip_uint64_t>(count);
        writeAt_ += count;
    }
    written_ = std::max(written_, writeAt_);
    return static_cast<zip_int64_t>(length);
}

zip_int64_t ZipFile::seek(off_t& place, off_t end, void* data, zip_uint64_t length) noexcept {
    const zip_int64_t offset = zip_source_seek_compute_offset(
        static_cast<zip_uint64_t>(place), static_cast<zip_uint64_t>(end), data, length, &error_);
    if (offset < 0) return -1;
    place = offset;
    return 0;
}

zip_int64_t ZipFile::beginWrite() noexcept {
    to_.reset(::open(target_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, kOwnerAlone));
    writeAt_ = 0;
    written_ = 0;
    return to_ ? 0 : refuse(ZIP_ER_TMPOPEN, errno);
}

zip_int64_t ZipFile::endWrite(bool keep) noexcept {
    if (keep && to_ && ::fsync(to_.get()) != 0) return refuse(ZIP_ER_WRITE, errno);
    if (!keep && to_) (void)::unlink(target_.c_str());  // a later run takes it over otherwise
    to_.reset();
    return 0;
}

}  // namespace ombrel
