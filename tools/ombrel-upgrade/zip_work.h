// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The files that the upgrade of a ZIP file has in the work folder. Their names are of our own making and tell
// which ZIP file they are of and what it held then, so that another one never goes on with them.
#pragma once

#include <optional>
#include <string>

#include "tools/ombrel-upgrade/work_folder.h"
#include "tools/ombrel-upgrade/zip_file.h"

namespace ombrel {

/// A new ZIP file that is whole and only has to take its place.
struct PackedZip {
    std::string path;
    long long rows = 0;
    bool hasForeign = false;  ///< an old database holds what the new one does not: the old ZIP file must stay
    std::string foreign;      ///< what that is, for people to read; empty when an earlier run has seen it
};

class ZipWork {
public:
    ZipWork(const WorkFolder& folder, const ZipFile& zip);
    /// False, with errno set, when there is no file at its path any more.
    [[nodiscard]] bool isOpen() const { return !base_.empty(); }

    [[nodiscard]] std::string unpacked(const ZipEntry& entry) const { return nameOf(entry) + ".old"; }
    [[nodiscard]] std::string converted(const ZipEntry& entry) const { return nameOf(entry) + ".new"; }
    [[nodiscard]] std::string packing() const { return base_ + "packing"; }
    /// Gives the file at packing() the name that findPacked finds. Returns what is wrong.
    std::string finish(PackedZip& packed) const;
    [[nodiscard]] std::optional<PackedZip> findPacked() const;
    /// Removes what the new ZIP file was made of: once that is in its place nobody would look for it any more,
    /// whatever ends the program. Returns what is wrong.
    [[nodiscard]] std::string removeParts(const PackedZip& packed) const;
    /// Removes all its files, for they are of a ZIP file that is no more.
    void remove() const;
    /// Removes what has been left by other files that had the number of this one, or by this one before it
    /// changed.
    void removeStale() const;

private:
    [[nodiscard]] std::string nameOf(const ZipEntry& entry) const { return base_ + std::to_string(entry.index); }

    std::string folder_;
    std::string base_;  ///< what all paths of this ZIP file begin with
};

}  // namespace ombrel
