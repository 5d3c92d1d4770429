// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Databases taken out of ZIP files for as long as they are read: in a folder that is open to this user alone, in
// the scratch folder of the volume, or in that for temporary files where the former is not to be had. What a
// killed program left there goes with the next one.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace ombrel {

struct Unpacked {
    std::shared_ptr<const std::string> path;  ///< the file is gone with the last of these; null without one
    unsigned long long bytes = 0;
    bool isLast = true;  ///< there is no other database in the ZIP file
    std::string error;   ///< empty although there is no file: there was no such database, or it was given up
};

/// Safe for several threads.
class ZipScratch {
public:
    ZipScratch();
    /// `volumeScratch` tells the scratch folder of a file's volume; empty when there is none.
    using FolderOf = std::function<std::string(const std::string& path)>;
    explicit ZipScratch(FolderOf volumeScratch);
    ~ZipScratch();
    ZipScratch(const ZipScratch&) = delete;
    ZipScratch& operator=(const ZipScratch&) = delete;

    /// Takes the database of that number, from 0, out of the ZIP file, unless `goesOn` becomes false.
    Unpacked unpack(const std::string& path, std::size_t number, const std::function<bool()>& goesOn);

private:
    struct Folders;
    std::shared_ptr<Folders> folders_;
};

}  // namespace ombrel
