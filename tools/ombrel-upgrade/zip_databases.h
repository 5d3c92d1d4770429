// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Which entries of a ZIP file are databases of the old layout, told from their first bytes alone.
#pragma once

#include <string>
#include <vector>

#include "tools/ombrel-upgrade/zip_file.h"

namespace ombrel {

struct ZipDatabases {
    std::string error;   ///< not empty: an entry cannot be read, and so not all of them be found
    std::string notice;  ///< on entries that nobody can look into without more than the ZIP file
    std::vector<ZipEntry> old;
};

ZipDatabases findOldDatabases(const ZipFile& zip);

}  // namespace ombrel
