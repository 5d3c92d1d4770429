// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Unpack, convert, pack, check, place: each step leaves a file in the work folder by which the next run knows that
// it is done. The ZIP file itself is only read until the new one takes its place.
#include "tools/ombrel-upgrade/upgrade_zip.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "linux/common/text_escape.h"
#include "linux/common/write_all.h"
#include "tools/ombrel-upgrade/conversion.h"
#include "tools/ombrel-upgrade/placement.h"
#include "tools/ombrel-upgrade/zip_databases.h"
#include "tools/ombrel-upgrade/zip_packing.h"
#include "tools/ombrel-upgrade/zip_work.h"

namespace ombrel {

namespace {

UpgradeOutcome done(long long rows) {
    return {UpgradeEnd::kDone, {}, {}, rows};
}
UpgradeOutcome stopped() {
    return {UpgradeEnd::kStopped, {}, {}, 0};
}
std::string cannotWrite(const std::string& file) {
    return "cannot write " + file + ": " + std::strerror(errno) + "; " + adviceFor(errno);
}

/// The bytes of one entry into `fd`: as many as it states, or it is damaged.
UpgradeOutcome unpackInto(int fd, const std::string& file, const ZipFile& zip, const ZipEntry& entry,
                          UpgradeWatch& watch) {
    const auto total = static_cast<long long>(entry.size);
    watch.progress(UpgradeStage::kUnpacking, 0, total);
    std::string error;
    const ZipStream stream = zip.read(entry, 0, error);
    if (!stream) return UpgradeOutcome::failed(std::move(error));
    std::string buffer(kZipBufferBytes, '\0');
    zip_uint64_t have = 0;
    while (true) {
        if (watch.stopWanted()) return stopped();
        const zip_int64_t count = zip_fread(stream.get(), buffer.data(), buffer.size());
        if (count < 0)
            return UpgradeOutcome::failed(zip.wrong("unpack", entry, zip_file_strerror(stream.get()), kTestZip));
        if (count == 0) break;
        have += static_cast<zip_uint64_t>(count);
        if (have > entry.size) break;
        if (!writeAll(fd, {buffer.data(), static_cast<std::size_t>(count)}))
            return UpgradeOutcome::failed(cannotWrite(file));
        watch.progress(UpgradeStage::kUnpacking, static_cast<long long>(have), total);
    }
    if (have != entry.size) {
        const char* why = have > entry.size ? "it is longer than it says" : "it is shorter than it says";
        return UpgradeOutcome::failed(zip.wrong("unpack", entry, why, kTestZip));
    }
    return ::fsync(fd) == 0 ? done(0) : UpgradeOutcome::failed(cannotWrite(file));
}

/// Makes `file` of the entry unless it is there: it has its name only when it is whole.
UpgradeOutcome unpack(const ZipFile& zip, const ZipEntry& entry, const std::string& file, UpgradeWatch& watch) {
    if (::access(file.c_str(), F_OK) == 0) return done(0);
    const std::string part = file + ".part";
    const Fd fd(::open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd) return UpgradeOutcome::failed(cannotWrite(part));
    UpgradeOutcome outcome = unpackInto(fd.get(), part, zip, entry, watch);
    if (outcome.end == UpgradeEnd::kDone && ::rename(part.c_str(), file.c_str()) != 0) {
        outcome = UpgradeOutcome::failed(cannotWrite(file));
    }
    if (outcome.end != UpgradeEnd::kDone) (void)::unlink(part.c_str());  // the next run begins it anew
    return outcome;
}

/// Makes a database of the current layout of one entry, in the work folder.
UpgradeOutcome convertEntry(const ZipFile& zip, const ZipEntry& entry, const ZipWork& work, std::string& foreign,
                            UpgradeWatch& watch, const ConversionOptions& options) {
    const std::string file = work.unpacked(entry);
    UpgradeOutcome outcome = unpack(zip, entry, file, watch);
    if (outcome.end != UpgradeEnd::kDone) return outcome;
    OldDatabase old;
    std::string error = old.open(file);
    if (error.empty()) {
        outcome = convertDatabase(old, work.converted(entry), watch, options).outcome;
        if (outcome.end != UpgradeEnd::kFailed) {
            foreign = old.foreignContents();
            return outcome;
        }
        error = outcome.error;
    }
    (void)::unlink(file.c_str());  // takes room, and is unpacked again quickly
    return UpgradeOutcome::failed(zip.wrong("convert", entry, error, "the ZIP file is as it was"));
}

/// Makes the new ZIP file in the work folder.
UpgradeOutcome makePacked(ZipFile& zip, const std::vector<ZipEntry>& old, const ZipWork& work, PackedZip& packed,
                          UpgradeWatch& watch, const ConversionOptions& options) {
    std::vector<ZipReplacement> replacements;
    for (const ZipEntry& entry : old) {
        std::string foreign;
        UpgradeOutcome outcome = convertEntry(zip, entry, work, foreign, watch, options);
        if (outcome.end != UpgradeEnd::kDone) return outcome;
        packed.rows += outcome.rows;
        if (!foreign.empty()) packed.foreign += (packed.hasForeign ? ", " : "") + foreign;
        packed.hasForeign = packed.hasForeign || !foreign.empty();
        replacements.push_back({entry, work.converted(entry)});
    }
    UpgradeOutcome outcome = packZip(zip, replacements, work.packing(), watch);
    if (outcome.end != UpgradeEnd::kDone) return outcome;
    std::string error = work.finish(packed);
    return error.empty() ? outcome : UpgradeOutcome::failed(std::move(error));
}

UpgradeOutcome place(const ZipFile& zip, const PackedZip& packed, bool removeOld) {
    const bool keepsOld = !removeOld || packed.hasForeign;
    std::string error = placeFile(zip.path(), packed.path, !keepsOld);
    if (!error.empty()) return UpgradeOutcome::failed(std::move(error));
    UpgradeOutcome outcome = done(packed.rows);
    if (packed.hasForeign) {
        outcome.notice =
            escapeForLine(keptNameOf(zip.path())) + " was kept, since only it holds: " +
            (packed.foreign.empty() ? "tables or columns that the current layout does not have" : packed.foreign);
    }
    return outcome;
}

UpgradeOutcome makeAndPlace(ZipFile& zip, const std::vector<ZipEntry>& old, const ZipWork& work, bool removeOld,
                            UpgradeWatch& watch, const ConversionOptions& options) {
    std::optional<PackedZip> packed = work.findPacked();
    if (!packed) {
        packed.emplace();
        UpgradeOutcome outcome = makePacked(zip, old, work, *packed, watch, options);
        if (outcome.end != UpgradeEnd::kDone) return outcome;
    }
    if (std::string error = work.removeParts(*packed); !error.empty())
        return UpgradeOutcome::failed(std::move(error));
    return zip.hasChanged() ? UpgradeOutcome::failed({}) : place(zip, *packed, removeOld);
}

UpgradeOutcome convertAndPlace(ZipFile& zip, const std::vector<ZipEntry>& old, const WorkFolder& folder,
                               bool removeOld, UpgradeWatch& watch, const ConversionOptions& options) {
    if (std::string error = checkReplaceable(zip.path(), removeOld); !error.empty())
        return UpgradeOutcome::failed(std::move(error));
    const ZipWork work(folder, zip);
    if (!work.isOpen())
        return UpgradeOutcome::failed("cannot read " + escapeForLine(zip.path()) + ": " + std::strerror(errno));
    work.removeStale();
    UpgradeOutcome outcome = makeAndPlace(zip, old, work, removeOld, watch, options);
    // What is wrong with a file that is another one by now is of no use to anybody, and so is what was made of it.
    if (outcome.end != UpgradeEnd::kFailed || !zip.hasChanged()) return outcome;
    work.remove();
    return UpgradeOutcome::failed(escapeForLine(zip.path()) +
                                  ": it was changed or moved meanwhile; run ombrel-upgrade again");
}

}  // namespace

UpgradeOutcome upgradeZip(const std::string& path, const WorkFolder& work, bool removeOld, UpgradeWatch& watch,
                          const ConversionOptions& options) {
    ZipFile zip;
    if (std::string error = zip.open(path); !error.empty()) return UpgradeOutcome::failed(std::move(error));
    const ZipDatabases databases = findOldDatabases(zip);
    if (!databases.error.empty()) return UpgradeOutcome::failed(databases.error);
    UpgradeOutcome outcome = done(0);
    if (!databases.old.empty()) outcome = convertAndPlace(zip, databases.old, work, removeOld, watch, options);
    if (outcome.notice.empty()) outcome.notice = databases.notice;
    return outcome;
}

}  // namespace ombrel
