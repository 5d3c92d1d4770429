// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Finds what there is to upgrade. Reads only; a file that is no log database costs one look at its tables.
#pragma once

#include <sys/types.h>

#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tools/ombrel-upgrade/upgrade_zip.h"

namespace ombrel {

enum class OldKind {
    kDatabase,
    kSetAside,  ///< by the log writer, as NAME.DB.old-N or NAME.DB.corrupt-N
    kZip,       ///< with databases of the old layout in it
};

struct FoundDatabase {
    std::string path;
    OldKind kind = OldKind::kDatabase;
    unsigned long long bytes = 0;
    dev_t device = 0;
    ino_t inode = 0;
    long long rows = 0;                    ///< not of a ZIP file
    int databases = 0;                     ///< of a ZIP file
    unsigned long long unpackedBytes = 0;  ///< of a ZIP file
    unsigned long long workBytes = 0;      ///< of what an earlier run has made of it
    long long workRows = 0;                ///< rows that are in it; not of a ZIP file
};

/// What the user is to know of a file or folder that is not among those found. `exitCode` 0: nothing is wrong.
struct FindNote {
    std::string text;
    int exitCode = 0;
};

struct Findings {
    std::vector<FoundDatabase> databases;  ///< working databases first, then by path
    std::vector<FindNote> notes;
};

/// Whether the log writer gives names like this one to what it sets aside.
bool isSetAsideName(const std::string& name);

class DatabaseFinder {
public:
    using ZipProbe = std::function<ZipContents(const std::string& path)>;
    /// Where the new file is made of the one at a path; empty when that cannot be told.
    using NewDatabase = std::function<std::string(const std::string& path)>;
    /// How much an earlier run has left for it.
    using WorkBytes = std::function<unsigned long long(const std::string& path)>;
    struct Probes {
        ZipProbe zip = nullptr;  ///< without it ZIP files are passed over
        NewDatabase newDatabase = nullptr;
        WorkBytes workBytes = nullptr;
    };

    explicit DatabaseFinder(Probes probes) : probes_(std::move(probes)) {}

    /// What lies in a folder and in its sub-folders (one level; no hidden ones, no symbolic links).
    void addFolder(const std::string& folder);
    /// One file. What is wrong with it is noted with an exit code.
    void addPath(const std::string& given);
    /// Ends the search.
    Findings take();

private:
    bool isNew(const FoundDatabase& file);
    void addEntries(const std::string& folder, bool isTop);
    void addDatabase(FoundDatabase file, bool isNamed);
    void addZip(FoundDatabase file, bool isNamed);
    void addNoDatabase(const FoundDatabase& file, bool isNamed);
    void lookForWork(FoundDatabase& file) const;
    void note(std::string text, int exitCode);

    Probes probes_;
    Findings found_;
    std::set<std::pair<dev_t, ino_t>> seen_;
};

}  // namespace ombrel
