// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/counted_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "linux/common/fd.h"

namespace ombrel {

namespace {

class CountedFile {
public:
    CountedFile(Fd file, zip_uint64_t size, std::function<void(long long)> onBytes)
        : file_(std::move(file)), size_(size), onBytes_(std::move(onBytes)) {
        zip_error_init(&error_);
    }
    CountedFile(const CountedFile&) = delete;
    CountedFile& operator=(const CountedFile&) = delete;
    ~CountedFile() { zip_error_fini(&error_); }

    /// Owned by the source, which ends with the archive that it was given to.
    static zip_int64_t command(void* self, void* data, zip_uint64_t length, zip_source_cmd_t what) noexcept {
        auto* file = static_cast<CountedFile*>(self);
        if (what != ZIP_SOURCE_FREE) return file->run(data, length, what);
        delete file;
        return 0;
    }

private:
    zip_int64_t run(void* data, zip_uint64_t length, zip_source_cmd_t what) noexcept {
        switch (what) {
            case ZIP_SOURCE_SUPPORTS:
                return ZIP_SOURCE_SUPPORTS_READABLE | ZIP_SOURCE_MAKE_COMMAND_BITMASK(ZIP_SOURCE_SUPPORTS);
            case ZIP_SOURCE_OPEN:
                at_ = 0;
                return 0;
            case ZIP_SOURCE_READ:
                return readSome(data, length);
            case ZIP_SOURCE_CLOSE:
                return 0;
            case ZIP_SOURCE_STAT:
                return tell(data, length);
            case ZIP_SOURCE_ERROR:
                return zip_error_to_data(&error_, data, length);
            default:
                zip_error_set(&error_, ZIP_ER_OPNOTSUPP, 0);
                return -1;
        }
    }
    zip_int64_t readSome(void* data, zip_uint64_t length) noexcept {
        ssize_t count = 0;
        do {
            count = ::pread(file_.get(), data, length, at_);
        } while (count < 0 && errno == EINTR);
        if (count < 0) {
            zip_error_set(&error_, ZIP_ER_READ, errno);
            return -1;
        }
        at_ += count;
        onBytes_(count);
        return count;
    }
    // Without the size libzip would take each file for one of more than 4 GiB.
    zip_int64_t tell(void* data, zip_uint64_t length) noexcept {
        if (length < sizeof(zip_stat_t)) {
            zip_error_set(&error_, ZIP_ER_INVAL, 0);
            return -1;
        }
        auto* status = static_cast<zip_stat_t*>(data);
        zip_stat_init(status);
        status->size = size_;
        status->valid = ZIP_STAT_SIZE;
        return sizeof(zip_stat_t);
    }

    Fd file_;
    zip_uint64_t size_;
    off_t at_ = 0;
    std::function<void(long long)> onBytes_;
    zip_error_t error_{};
};

}  // namespace

zip_source_t* makeCountedSource(const std::string& path, std::function<void(long long)> onBytes,
                                std::string& error) {
    Fd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!fd || ::fstat(fd.get(), &status) != 0) {
        error = std::strerror(errno);
        return nullptr;
    }
    const auto size = static_cast<zip_uint64_t>(status.st_size);
    auto file = std::make_unique<CountedFile>(std::move(fd), size, std::move(onBytes));
    zip_error_t reason;
    zip_error_init(&reason);
    zip_source_t* source = zip_source_function_create(CountedFile::command, file.get(), &reason);
    if (source != nullptr) {
        (void)file.release();
    } else {
        error = zip_error_strerror(&reason);
    }
    zip_error_fini(&reason);
    return source;
}

}  // namespace ombrel
