// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A new ZIP file out of an old one and the files that take the place of some of its entries.
#pragma once

#include <string>
#include <vector>

#include "tools/ombrel-upgrade/upgrade_watch.h"
#include "tools/ombrel-upgrade/zip_file.h"

namespace ombrel {

struct ZipReplacement {
    ZipEntry entry;
    std::string file;
};

/// Writes `target`: the entries of `zip` in their order with their names, times, attributes and comments, those
/// without a replacement with their packed bytes too. Then reads it back and compares all of it. On the disk when
/// it is done; without a file at `target` otherwise.
UpgradeOutcome packZip(ZipFile& zip, const std::vector<ZipReplacement>& replacements, const std::string& target,
                       UpgradeWatch& watch);

}  // namespace ombrel
