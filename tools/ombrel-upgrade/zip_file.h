// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A ZIP file, read through one open descriptor: whatever comes to be at its name meanwhile, all that is read is of
// the same file. Changes never go into it but into another file.
#pragma once

#include <sys/stat.h>
#include <zip.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "linux/common/fd.h"

namespace ombrel {

constexpr std::size_t kZipBufferBytes = 256U << 10;

struct ZipEntry {
    zip_uint64_t index = 0;
    std::string name;  ///< as a stranger wrote it: never a path, and escaped where it is shown
    zip_uint64_t size = 0;
    zip_uint64_t packedSize = 0;
    zip_uint32_t crc = 0;
    zip_uint16_t method = 0;
    zip_uint16_t encryption = 0;
    time_t changed = 0;
    zip_uint8_t system = 0;  ///< that gives `attributes` their meaning
    zip_uint32_t attributes = 0;
    std::string comment;

    bool operator==(const ZipEntry&) const = default;
};

struct ZipStreamClose {
    void operator()(zip_file_t* stream) const noexcept { (void)zip_fclose(stream); }
};
using ZipStream = std::unique_ptr<zip_file_t, ZipStreamClose>;

class ZipFile {
public:
    ZipFile() = default;
    ZipFile(const ZipFile&) = delete;
    ZipFile& operator=(const ZipFile&) = delete;
    ~ZipFile();

    /// Reads the list of entries. Returns what is wrong, empty when nothing is.
    std::string open(const std::string& path);
    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    [[nodiscard]] const struct stat& status() const noexcept { return status_; }
    [[nodiscard]] const std::vector<ZipEntry>& entries() const noexcept { return entries_; }
    [[nodiscard]] std::string comment() const;
    [[nodiscard]] zip_t* handle() const noexcept { return archive_; }
    /// Whether another file stands at the name now, or this one was written to.
    [[nodiscard]] bool hasChanged() const;

    /// The bytes of an entry; with ZIP_FL_COMPRESSED as they are packed. Null: `error` says why.
    [[nodiscard]] ZipStream read(const ZipEntry& entry, zip_flags_t flags, std::string& error) const;
    /// "a.ZIP: cannot WHAT the entry b.DB: WHY; ADVICE", made fit for one line.
    [[nodiscard]] std::string wrong(const char* what, const ZipEntry& entry, const std::string& why,
                                    const char* advice) const;

    /// Is told the bytes of each read, until nobody is named; must not throw.
    void tellReads(std::function<void(long long)> onBytes) { onBytes_ = std::move(onBytes); }
    /// Writes the archive with its changes to `target` and on the disk. 0, or a code of libzip with `error` set
    /// and without a file at `target`. Either way the object then stands for the file as it is.
    int writeTo(const std::string& target, std::string& error);

private:
    static zip_int64_t command(void* self, void* data, zip_uint64_t length, zip_source_cmd_t what) noexcept;
    zip_int64_t run(void* data, zip_uint64_t length, zip_source_cmd_t what) noexcept;
    zip_int64_t tell(void* data, zip_uint64_t length) noexcept;
    zip_int64_t readSome(void* data, zip_uint64_t length) noexcept;
    zip_int64_t writeSome(const void* data, zip_uint64_t length) noexcept;
    zip_int64_t seek(off_t& place, off_t end, void* data, zip_uint64_t length) noexcept;
    zip_int64_t beginWrite() noexcept;
    zip_int64_t endWrite(bool keep) noexcept;
    zip_int64_t refuse(int code, int systemCode) noexcept;
    std::string readArchive();
    std::string readEntries();

    std::string path_;
    struct stat status_ {};
    Fd from_;
    off_t readAt_ = 0;
    std::string target_;
    Fd to_;
    off_t writeAt_ = 0;
    off_t written_ = 0;
    std::function<void(long long)> onBytes_;
    zip_error_t error_{};
    zip_t* archive_ = nullptr;
    std::vector<ZipEntry> entries_;
};

/// What a ZIP file that cannot be read should be met with.
constexpr const char* kTestZip = "the ZIP file is damaged: see what `unzip -t` says of it";
/// What to do about a failed write.
const char* adviceFor(int systemCode) noexcept;

}  // namespace ombrel
