// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/zip_packing.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "linux/common/text_escape.h"
#include "tools/ombrel-upgrade/counted_source.h"

namespace ombrel {

namespace {

constexpr zip_uint32_t kLevel = 6;  // of zip, by which the archiver packs; libzip would take twice the time

/// The bytes that are packed or copied, and then read back.
class PackProgress {
public:
    PackProgress(const ZipFile& zip, const std::vector<ZipReplacement>& replacements, UpgradeWatch& watch)
        : watch_(watch) {
        for (const ZipEntry& entry : zip.entries())
            half_ += static_cast<long long>(entry.packedSize);
        for (const ZipReplacement& one : replacements) {
            struct stat status {};
            if (::stat(one.file.c_str(), &status) == 0) half_ += status.st_size;
            half_ -= static_cast<long long>(one.entry.packedSize);
        }
        watch_.progress(UpgradeStage::kPacking, 0, total());
    }

    static int cancelled(zip_t* /*archive*/, void* self) noexcept {
        return static_cast<PackProgress*>(self)->stopWanted() ? 1 : 0;
    }
    void packed(long long bytes) { tell(std::min(done_ + bytes, half_)); }
    void beginReadingBack() { tell(half_); }
    void readBack(long long bytes) { tell(done_ + bytes); }
    void end() { watch_.progress(UpgradeStage::kPacking, total(), total()); }
    [[nodiscard]] bool stopWanted() const { return watch_.stopWanted(); }

private:
    [[nodiscard]] long long total() const { return 2 * half_; }

    void tell(long long bytes) {
        done_ = std::clamp(bytes, done_, total());
        if (done_ - told_ < static_cast<long long>(kZipBufferBytes)) return;
        told_ = done_;
        watch_.progress(UpgradeStage::kPacking, done_, total());
    }

    UpgradeWatch& watch_;
    long long half_ = 0;
    long long done_ = 0;
    long long told_ = 0;
};

/// Where bytes come from that are compared: a file, or an entry of a ZIP file.
class ByteSource {
public:
    ByteSource(const ZipFile& zip, const ZipEntry& entry, zip_flags_t flags) : buffer_(kZipBufferBytes, '\0') {
        std::string error;
        stream_ = zip.read(entry, flags, error);
        isBroken_ = !stream_;
    }
    explicit ByteSource(const std::string& file)
        : fd_(::open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC)),
          buffer_(kZipBufferBytes, '\0'),
          isBroken_(!fd_) {}

    /// The next bytes, fewer than a buffer only at the end, whatever has brought that about.
    std::string_view next() {
        std::size_t have = 0;
        while (!isBroken_ && have < buffer_.size()) {
            const long long count = readSome(buffer_.data() + have, buffer_.size() - have);
            isBroken_ = count < 0;
            if (count <= 0) break;
            have += static_cast<std::size_t>(count);
        }
        return std::string_view(buffer_).substr(0, have);
    }
    [[nodiscard]] bool isBroken() const { return isBroken_; }

private:
    long long readSome(char* data, std::size_t length) {
        return stream_ ? zip_fread(stream_.get(), data, length) : ::read(fd_.get(), data, length);
    }

    ZipStream stream_;
    Fd fd_;
    std::string buffer_;
    bool isBroken_ = false;
};

enum class Comparison { kEqual, kDifferent, kStopped };

Comparison compareBytes(ByteSource& a, ByteSource& b, bool mayBeBroken, PackProgress& progress) {
    while (true) {
        if (progress.stopWanted()) return Comparison::kStopped;
        const std::string_view first = a.next();
        const std::string_view second = b.next();
        if (first != second || a.isBroken() != b.isBroken()) return Comparison::kDifferent;
        if (a.isBroken() && !mayBeBroken) return Comparison::kDifferent;
        if (first.empty() || a.isBroken()) return Comparison::kEqual;
        progress.readBack(static_cast<long long>(first.size()));
    }
}

const ZipReplacement* replacementOf(const ZipEntry& entry, const std::vector<ZipReplacement>& replacements) {
    const auto found = std::find_if(replacements.begin(), replacements.end(),
                                    [&](const ZipReplacement& one) { return one.entry.index == entry.index; });
    return found != replacements.end() ? &*found : nullptr;
}

bool isTimeOfZip(time_t time) {
    constexpr int kFirstYear = 1980 - 1900;
    constexpr int kLastYear = 2107 - 1900;
    std::tm local{};
    return ::localtime_r(&time, &local) != nullptr && local.tm_year >= kFirstYear && local.tm_year <= kLastYear;
}

/// Whether all that is told about the two entries is the same, but for what a replacement changes.
bool isSameEntry(ZipEntry before, const ZipEntry& after, bool isReplaced) {
    if (isReplaced) {
        before.size = after.size;
        before.packedSize = after.packedSize;
        before.crc = after.crc;
        before.method = after.method;
    }
    // Some programs write zeros there, or whatever they had, and libzip the nearest time that is one.
    if (!isTimeOfZip(before.changed)) before.changed = after.changed;
    return before == after;
}

Comparison compareEntry(const ZipFile& before, const ZipFile& after, const ZipEntry& entry,
                        const ZipReplacement* replacement, PackProgress& progress) {
    const ZipEntry& other = after.entries()[entry.index];
    if (!isSameEntry(entry, other, replacement != nullptr)) return Comparison::kDifferent;
    if (replacement != nullptr) {
        ByteSource file(replacement->file);
        ByteSource packed(after, other, 0);
        return compareBytes(file, packed, false, progress);
    }
    const zip_flags_t raw = entry.encryption != ZIP_EM_NONE ? ZIP_FL_ENCRYPTED : ZIP_FL_COMPRESSED;
    ByteSource old(before, entry, raw);
    ByteSource packed(after, other, raw);
    // Somebody else's damage, which libzip finds in what is not packed, comes over as it is.
    return compareBytes(old, packed, true, progress);
}

UpgradeOutcome compareZips(const ZipFile& before, const std::string& target,
                           const std::vector<ZipReplacement>& replacements, PackProgress& progress) {
    ZipFile after;
    if (std::string error = after.open(target); !error.empty()) return UpgradeOutcome::failed(std::move(error));
    const std::string unequal =
        escapeForLine(before.path()) + ": what was packed anew does not read back as it should";
    const char* advice = "; check the disk, and run ombrel-upgrade again";
    if (before.entries().size() != after.entries().size() || before.comment() != after.comment()) {
        return UpgradeOutcome::failed(unequal + advice);
    }
    for (const ZipEntry& entry : before.entries()) {
        const ZipReplacement* replacement = replacementOf(entry, replacements);
        const Comparison result = compareEntry(before, after, entry, replacement, progress);
        if (result == Comparison::kStopped) return {UpgradeEnd::kStopped, {}, {}, 0};
        if (result == Comparison::kDifferent) {
            return UpgradeOutcome::failed(unequal + ", at the entry " + escapeForLine(entry.name) + advice);
        }
    }
    return {UpgradeEnd::kDone, {}, {}, 0};
}

/// Has libzip take `one.file` for the entry. Empty, or what is wrong.
std::string replace(const ZipFile& zip, const ZipReplacement& one, PackProgress& progress) {
    zip_t* archive = zip.handle();
    const zip_uint64_t index = one.entry.index;
    std::string error;
    zip_source_t* source = makeCountedSource(
        one.file, [&progress](long long bytes) { progress.packed(bytes); }, error);
    if (source == nullptr) return zip.wrong("replace", one.entry, error, "run ombrel-upgrade again");
    if (zip_file_replace(archive, index, source, 0) != 0) {
        zip_source_free(source);
    } else if (zip_set_file_compression(archive, index, ZIP_CM_DEFLATE, kLevel) == 0 &&
               zip_file_set_mtime(archive, index, one.entry.changed, 0) == 0 &&
               zip_file_set_external_attributes(archive, index, 0, one.entry.system, one.entry.attributes) == 0) {
        return {};
    }
    return zip.wrong("replace", one.entry, zip_strerror(archive), "run ombrel-upgrade again");
}

/// Writes what packZip() then compares.
UpgradeOutcome writeZip(ZipFile& zip, const std::vector<ZipReplacement>& replacements, const std::string& target,
                        PackProgress& progress) {
    for (const ZipReplacement& one : replacements) {
        if (std::string error = replace(zip, one, progress); !error.empty())
            return UpgradeOutcome::failed(std::move(error));
    }
    if (zip_register_cancel_callback_with_state(zip.handle(), PackProgress::cancelled, nullptr, &progress) != 0) {
        return UpgradeOutcome::failed(escapeForLine(zip.path()) + ": cannot pack it anew: out of memory");
    }
    zip.tellReads([&progress](long long bytes) { progress.packed(bytes); });
    std::string error;
    const int code = zip.writeTo(target, error);
    zip.tellReads(nullptr);
    if (code == ZIP_ER_CANCELLED) return {UpgradeEnd::kStopped, {}, {}, 0};
    return code == ZIP_ER_OK ? UpgradeOutcome{UpgradeEnd::kDone, {}, {}, 0}
                             : UpgradeOutcome::failed(std::move(error));
}

}  // namespace

UpgradeOutcome packZip(ZipFile& zip, const std::vector<ZipReplacement>& replacements, const std::string& target,
                       UpgradeWatch& watch) {
    PackProgress progress(zip, replacements, watch);
    UpgradeOutcome outcome = writeZip(zip, replacements, target, progress);
    if (outcome.end != UpgradeEnd::kDone) return outcome;
    progress.beginReadingBack();
    outcome = compareZips(zip, target, replacements, progress);
    if (outcome.end == UpgradeEnd::kDone) {
        progress.end();
    } else {
        (void)::unlink(target.c_str());  // a later run writes over it otherwise
    }
    return outcome;
}

}  // namespace ombrel
