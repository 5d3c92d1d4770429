// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The working databases of one archive folder: a shared one, or one for each sending host, and one for what this
// machine logs itself. Both the open
// ones and all of them are bounded, since strangers choose the host names. To be used by one thread; storing
// for many hosts it lets some others help, since each transaction mostly waits for the disk.
#pragma once

#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "receiver/store/working_database.h"

namespace ombrel {

class DatabasePool {
public:
    struct Limits {
        size_t openDatabases = 256;  ///< three descriptors each
        size_t hostFolders = 10'000;
    };

    /// `schema` must outlive this object.
    DatabasePool(std::string archiveFolder, bool byDevice, const std::string& schema)
        : DatabasePool(std::move(archiveFolder), byDevice, schema, Limits{}) {}
    DatabasePool(std::string archiveFolder, bool byDevice, const std::string& schema, Limits limits);

    /// Stores the batches, in one transaction for each database that they touch. After a failure the part
    /// that was stored is recognised when it comes again.
    StoreOutcome store(const std::vector<RowBatch>& batches, LocalClock& clock);

private:
    using Split = std::unordered_map<std::string, std::vector<RowBatch>>;

    const std::string& folderOfHost(std::string_view host);
    std::string chooseFolder(std::string_view host);
    Split split(const std::vector<RowBatch>& batches);
    void splitByHost(const RowBatch& batch, Split& parts);
    WorkingDatabase& open(const std::string& path);
    struct Part;
    StoreOutcome storeSplit(const Split& all);
    static void storeParts(std::vector<Part>& parts);

    std::string archiveFolder_;
    bool byDevice_;
    const std::string& schema_;
    Limits limits_;
    size_t hostFolders_ = 0;
    std::unordered_map<std::string, std::string> folders_;  // host to folder
    std::list<WorkingDatabase> open_;                       // the one used last in front
};

}  // namespace ombrel
