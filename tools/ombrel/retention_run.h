// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The retention as it applies to the archive folder now.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/ombrel/archive_folder.h"
#include "tools/ombrel/json_writer.h"

namespace ombrel {

class Retention {
public:
    /// Looks at the archives and plans. What could not be looked at is among the notes.
    Retention(const std::string& archiveFolder, const RetentionSettings& settings, long long now);

    [[nodiscard]] const RetentionPlan& plan() const { return plan_; }
    [[nodiscard]] const std::vector<std::string>& notes() const { return scan_.notes; }
    [[nodiscard]] std::size_t archiveCount() const { return scan_.archives.size(); }
    [[nodiscard]] unsigned long long archiveBytes() const;
    [[nodiscard]] const std::optional<unsigned long long>& freeBytes() const { return freeBytes_; }
    [[nodiscard]] const RetainedArchive& archiveOf(const Removal& removal) const {
        return scan_.archives[removal.index].facts;
    }

    /// Makes the removals in their order, each with its event, and tells how it went: empty, or what is wrong;
    /// `goesOn` is asked before each.
    void apply(const std::function<void(const Removal&, const std::string& wrong)>& tell,
               const std::function<bool()>& goesOn = {}) const;

    /// "/srv/logs/x.DB (12.3 MB): it ended more than 30 days ago"
    [[nodiscard]] std::string textOf(const Removal& removal) const;
    /// What stays although a limit is broken, a line each.
    [[nodiscard]] std::vector<std::string> shortfalls() const;
    void addJson(JsonWriter& json, const Removal& removal) const;

private:
    RetentionSettings settings_;
    ArchiveScan scan_;
    std::optional<unsigned long long> freeBytes_;
    RetentionPlan plan_;
};

}  // namespace ombrel
