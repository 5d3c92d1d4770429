// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/zip_work.h"

#include <unistd.h>
#include <xxhash.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

#include "linux/common/folder_stream.h"
#include "linux/common/path_parts.h"
#include "linux/common/sync_folder.h"

namespace ombrel {

namespace {

constexpr const char* kZip = ".zip-";
constexpr std::string_view kPacked = "packed-";
constexpr std::string_view kForeign = "-foreign";

/// The same for the same file with the same contents.
std::string fingerprint(const ZipFile& zip) {
    const struct stat& file = zip.status();
    const std::array<std::uint64_t, 3> whole{static_cast<std::uint64_t>(file.st_size),
                                             static_cast<std::uint64_t>(file.st_mtim.tv_sec),
                                             static_cast<std::uint64_t>(file.st_mtim.tv_nsec)};
    std::uint64_t hash = XXH64(whole.data(), sizeof whole, 0);
    for (const ZipEntry& entry : zip.entries()) {
        const std::array<std::uint64_t, 3> one{entry.crc, entry.size, entry.packedSize};
        hash = XXH64(one.data(), sizeof one, hash);
    }
    std::array<char, 17> text{};
    (void)std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(hash));
    return text.data();
}

std::vector<std::string> namesWith(const std::string& folder, const std::string& prefix) {
    std::vector<std::string> names;
    const FolderStream stream(::opendir(folder.c_str()));
    if (stream == nullptr) return names;
    while (const dirent* one = ::readdir(stream.get())) {
        if (std::string_view(one->d_name).starts_with(prefix)) names.emplace_back(one->d_name);
    }
    return names;
}

}  // namespace

ZipWork::ZipWork(const WorkFolder& folder, const ZipFile& zip)
    : folder_(folder.path()), base_(folder.placeFor(zip.path(), kZip)) {
    if (!base_.empty()) base_ += fingerprint(zip) + "-";
}

std::string ZipWork::finish(PackedZip& packed) const {
    const std::string mark(packed.hasForeign ? kForeign : "");
    packed.path = base_ + std::string(kPacked) + std::to_string(packed.rows) + mark;
    if (::rename(packing().c_str(), packed.path.c_str()) != 0 || !syncFolder(folder_)) {
        return "cannot rename " + packing() + ": " + std::strerror(errno) + "; " + adviceFor(errno);
    }
    return {};
}

std::string ZipWork::removeParts(const PackedZip& packed) const {
    for (const std::string& name : namesWith(folder_, ombrel::nameOf(base_))) {
        const std::string path = folder_ + "/" + name;
        if (path == packed.path || ::unlink(path.c_str()) == 0) continue;
        return "cannot remove " + path + ": " + std::strerror(errno) + "; " + adviceFor(errno);
    }
    return {};
}

std::optional<PackedZip> ZipWork::findPacked() const {
    const std::string prefix = ombrel::nameOf(base_) + std::string(kPacked);
    for (const std::string& name : namesWith(folder_, prefix)) {
        PackedZip packed;
        packed.path = folder_ + "/" + name;
        const char* end = name.data() + name.size();
        const auto [rest, code] = std::from_chars(name.data() + prefix.size(), end, packed.rows);
        const std::string_view mark(rest, static_cast<std::size_t>(end - rest));
        packed.hasForeign = mark == kForeign;
        if (code == std::errc() && (mark.empty() || packed.hasForeign)) return packed;
    }
    return std::nullopt;
}

void ZipWork::remove() const {
    for (const std::string& name : namesWith(folder_, ombrel::nameOf(base_)))
        (void)::unlink((folder_ + "/" + name).c_str());  // in nobody's way
}

void ZipWork::removeStale() const {
    const std::string own = ombrel::nameOf(base_);
    for (const std::string& name : namesWith(folder_, own.substr(0, own.find('-') + 1))) {
        if (name.starts_with(own) || name.find(kZip) == std::string::npos) continue;
        (void)::unlink((folder_ + "/" + name).c_str());  // in nobody's way
    }
}

}  // namespace ombrel
