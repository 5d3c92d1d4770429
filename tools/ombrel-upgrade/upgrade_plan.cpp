// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/upgrade_plan.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "linux/common/path_parts.h"
#include "linux/common/progress_bar.h"
#include "linux/common/text_escape.h"
#include "tools/ombrel-upgrade/placement.h"

namespace ombrel {

namespace {

constexpr unsigned long long kMiB = 1024ULL * 1024;
constexpr unsigned long long kLeftFree = 64 * kMiB;    // the log writer goes on meanwhile
constexpr unsigned long long kJournal = 8 * kMiB;      // of the one transaction that is open
constexpr unsigned long long kEmptyTables = kMiB / 8;  // of a database without rows

unsigned long long convertedSize(unsigned long long oldBytes) {
    return oldBytes / 4 * 5 + kEmptyTables;
}

unsigned long long lessBy(unsigned long long value, unsigned long long part) {
    return value > part ? value - part : 0;
}

/// The most that is taken at any moment, when one file after the other is done.
class Sequence {
public:
    explicit Sequence(bool removeOld) : removeOld_(removeOld) {}
    void add(const SpaceNeed& need) {
        const auto atWork = taken_ + static_cast<long long>(need.atWork);
        peak_ = std::max(peak_, atWork);
        taken_ += static_cast<long long>(need.kept);
        if (removeOld_) taken_ -= static_cast<long long>(need.freed);
    }
    [[nodiscard]] unsigned long long peak() const {
        return static_cast<unsigned long long>(peak_) + kJournal + kLeftFree;
    }

private:
    bool removeOld_;
    long long taken_ = 0;
    long long peak_ = 0;
};

unsigned long long neededOn(dev_t device, const std::vector<FoundDatabase>& files, bool removeOld) {
    Sequence sequence(removeOld);
    for (const FoundDatabase& file : files) {
        if (file.device == device) sequence.add(spaceNeedOf(file));
    }
    return sequence.peak();
}

using Row = std::array<std::string, 5>;

std::string fate(const FoundDatabase& file, bool removeOld, const ArchivePath& archivePath) {
    std::string text;
    if (file.kind == OldKind::kZip) {
        text = groupedNumber(static_cast<unsigned long long>(file.databases)) +
               (file.databases == 1 ? " old database in it" : " old databases in it");
        if (file.workBytes > 0) text += ", goes on where it was";
    } else if (file.workRows > 0) {
        const double share =
            shareDone(static_cast<unsigned long long>(file.workRows), static_cast<unsigned long long>(file.rows));
        text = "goes on at " + std::to_string(static_cast<int>(share * 100)) + " %";
    } else {
        text = "is converted";
    }
    std::string name = nameOf(file.path);
    if (file.kind == OldKind::kSetAside) {
        const std::string archive = archivePath(file.path);
        if (archive.empty()) return "stays: no archive name is free for it";
        name = nameOf(archive);
        text += ", becomes " + escapeForLine(name);
    }
    return text +
           (removeOld ? ", the old file goes" : ", the old file stays as " + escapeForLine(keptNameOf(name)));
}

// The columns with numbers are aligned at their right ends.
std::string tableText(const std::vector<Row>& rows) {
    std::array<std::size_t, 5> widths{};
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], mostColumns(row[i]));
    }
    std::string text;
    for (const Row& row : rows) {
        for (std::size_t i = 0; i + 1 < row.size(); ++i) {
            const std::string blanks(widths[i] - mostColumns(row[i]), ' ');
            text += i == 0 ? row[i] + blanks : "  " + blanks + row[i];
        }
        text += "  " + row.back() + "\n";
    }
    return text;
}

}  // namespace

SpaceNeed spaceNeedOf(const FoundDatabase& file) {
    if (file.kind == OldKind::kZip) {
        const unsigned long long packed = convertedSize(file.bytes);
        const unsigned long long all = file.unpackedBytes + convertedSize(file.unpackedBytes) + packed;
        return {lessBy(all, file.workBytes), packed, file.bytes};
    }
    const unsigned long long left = lessBy(convertedSize(file.bytes), file.workBytes);
    return {left, left, file.bytes};
}

std::vector<VolumeNeed> volumeNeeds(const std::vector<FoundDatabase>& files) {
    std::vector<VolumeNeed> volumes;
    for (const FoundDatabase& file : files) {
        const auto isSame = [&](const VolumeNeed& volume) { return volume.device == file.device; };
        if (std::any_of(volumes.begin(), volumes.end(), isSame)) continue;
        volumes.push_back({file.device, folderOf(file.path), neededOn(file.device, files, false),
                           neededOn(file.device, files, true)});
    }
    return volumes;
}

std::vector<std::string> spaceProblems(const std::vector<VolumeNeed>& volumes, bool removeOld,
                                       const SpaceCheck& isEnough, const FreeBytes& freeBytes) {
    std::vector<std::string> lines;
    for (const VolumeNeed& volume : volumes) {
        const unsigned long long needed = removeOld ? volume.neededRemovingOld : volume.needed;
        if (isEnough(volume.folder, needed)) continue;
        const bool removingHelps = !removeOld && isEnough(volume.folder, volume.neededRemovingOld);
        lines.push_back("too little space at " + volume.folder + ": " + sizeText(needed) + " needed, " +
                        sizeText(freeBytes(volume.folder)) + " free; " +
                        (removingHelps ? "use --remove-old, free some space, or name fewer files"
                                       : "free some space, or name fewer files"));
    }
    return lines;
}

std::string planText(const std::vector<FoundDatabase>& files, const std::vector<VolumeNeed>& volumes,
                     bool removeOld, const ArchivePath& archivePath, const FreeBytes& freeBytes) {
    std::vector<Row> rows{{"FILE", "ROWS", "SIZE", "NEEDS", "WHAT"}};
    for (const FoundDatabase& file : files) {
        const bool isZip = file.kind == OldKind::kZip;
        rows.push_back(
            {escapeForLine(file.path), isZip ? "-" : groupedNumber(static_cast<unsigned long long>(file.rows)),
             sizeText(file.bytes), sizeText(spaceNeedOf(file).atWork), fate(file, removeOld, archivePath)});
    }
    std::string text = tableText(rows);
    for (const VolumeNeed& volume : volumes) {
        text += escapeForLine(volume.folder) + ": " +
                sizeText(removeOld ? volume.neededRemovingOld : volume.needed) + " needed, " +
                sizeText(freeBytes(volume.folder)) + " free\n";
    }
    return text;
}

}  // namespace ombrel
