// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/search_zip.h"

#include <fcntl.h>
#include <strings.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <vector>

#include "linux/common/path_parts.h"
#include "linux/common/write_all.h"
#include "ombrel/utils.h"
#include "tools/ombrel-upgrade/zip_file.h"
#include "tools/ombrel/log_files.h"
#include "tools/ombrel/scratch_place.h"

namespace ombrel {

/// The folders in use, by the folder of the ZIP files: a volume each.
struct ZipScratch::Folders {
    FolderOf volumeScratch;
    std::mutex mutex;
    std::map<std::string, std::shared_ptr<ScratchPlace>> byFolder;
    unsigned long long files = 0;

    /// A name that no other file has, made of nothing that a stranger wrote.
    std::shared_ptr<ScratchPlace> placeFor(const std::string& zip, std::string& name, std::string& error) {
        const std::lock_guard lock(mutex);
        std::shared_ptr<ScratchPlace>& place = byFolder[folderOf(zip)];
        if (place == nullptr) place = ScratchPlace::make(volumeScratch(zip), error);
        const NameDays days = daysOfName(nameOf(zip)).value_or(NameDays{"1970-01-01", "1970-01-01"});
        name = days.first + "_" + days.last + "_" + std::to_string(++files) + ".DB";
        return place;
    }
};

namespace {

constexpr const char* kUnpackByHand = "unpack it by hand";
constexpr const char* kTestIt = "see what `unzip -t` says of it";

bool isNamedAsDatabase(const ZipEntry& entry) {
    constexpr std::string_view kExtension = ".DB";
    return entry.name.size() >= kExtension.size() &&
           ::strcasecmp(entry.name.c_str() + entry.name.size() - kExtension.size(), kExtension.data()) == 0;
}

/// Writes the entry out. Empty when it is whole, or when it was given up; `isWhole` tells which.
std::string writeOut(const ZipFile& zip, const ZipEntry& entry, int file, const std::function<bool()>& goesOn,
                     bool& isWhole) {
    std::string error;
    const ZipStream stream = zip.read(entry, 0, error);
    if (!stream) return error;
    std::vector<char> buffer(kZipBufferBytes);
    zip_uint64_t written = 0;
    while (goesOn()) {
        const zip_int64_t count = zip_fread(stream.get(), buffer.data(), buffer.size());
        if (count < 0) return zip.wrong("read", entry, zip_file_strerror(stream.get()), kTestIt);
        if (count == 0) {
            isWhole = written == entry.size;
            return isWhole ? "" : zip.wrong("read", entry, "it is shorter than it should be", kTestIt);
        }
        written += static_cast<zip_uint64_t>(count);
        if (written > entry.size) return zip.wrong("read", entry, "it is longer than it should be", kTestIt);
        if (!writeAll(file, {buffer.data(), static_cast<std::size_t>(count)})) {
            return zip.wrong("unpack", entry, std::strerror(errno), "make room on the volume and search again");
        }
    }
    return {};
}

}  // namespace

ZipScratch::ZipScratch(FolderOf volumeScratch) : folders_(std::make_shared<Folders>()) {
    folders_->volumeScratch = std::move(volumeScratch);
}

ZipScratch::~ZipScratch() = default;

Unpacked ZipScratch::unpack(const std::string& path, std::size_t number, const std::function<bool()>& goesOn) {
    constexpr unsigned long long kSpare = 64ULL << 20;
    Unpacked unpacked;
    ZipFile zip;
    unpacked.error = zip.open(path);
    if (!unpacked.error.empty()) return unpacked;
    std::vector<ZipEntry> databases;
    for (const ZipEntry& entry : zip.entries()) {
        if (isNamedAsDatabase(entry)) databases.push_back(entry);
    }
    if (number >= databases.size()) {
        if (number == 0) unpacked.error = path + ": there is no database in it";
        return unpacked;
    }
    const ZipEntry& entry = databases[number];
    unpacked.isLast = number + 1 == databases.size();
    if (entry.encryption != ZIP_EM_NONE) {
        unpacked.error = zip.wrong("read", entry, "it is encrypted", kUnpackByHand);
        return unpacked;
    }
    std::string name;
    const auto place = folders_->placeFor(path, name, unpacked.error);
    if (place == nullptr) return unpacked;
    if (!IsVolumeSpaceEnough(place->path(), entry.size + kSpare)) {
        unpacked.error =
            zip.wrong("unpack", entry, "too little space at " + place->path(), "make room and search again");
        return unpacked;
    }
    const Fd file(::openat(place->fd(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file) {
        unpacked.error = place->path() + ": " + std::strerror(errno);
        return unpacked;
    }
    std::shared_ptr<const std::string> made(new std::string(place->path() + "/" + name),
                                            [place, name](const std::string* text) {
                                                (void)::unlinkat(place->fd(), name.c_str(), 0);
                                                delete text;
                                            });
    bool isWhole = false;
    unpacked.error = writeOut(zip, entry, file.get(), goesOn, isWhole);
    if (!isWhole) return unpacked;
    unpacked.bytes = entry.size;
    unpacked.path = std::move(made);
    return unpacked;
}

}  // namespace ombrel
