// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What is told of one run of the schedule: lines as things happen, or one JSON object at its end.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/ombrel/archive_run.h"
#include "tools/ombrel/context.h"
#include "tools/ombrel/retention_run.h"

namespace ombrel {

class ScheduleReport {
public:
    /// `isDry`: nothing is done, all of it would be.
    ScheduleReport(const Context& context, bool isDry) : asJson_(context.json), isDry_(isDry) {}

    /// Something failed; it is complained of here.
    void problem(const std::string& what);
    /// Something failed and was complained of elsewhere, with this exit code.
    void failed(int exitCode, const std::string& what);
    void archiving(const Archiving& each);
    /// The removals and what else is told belong to this one.
    void setRetention(Retention retention) { retention_ = std::move(retention); }
    void removal(const Removal& removal, const std::string& wrong = {});

    /// The exit code.
    int end(long long now);

private:
    void line(const std::string& text);
    [[nodiscard]] std::string json(long long now) const;

    bool asJson_;
    bool isDry_;
    bool hasLines_ = false;
    bool written_ = true;
    int exitCode_ = 0;  ///< of the first thing that failed
    std::vector<std::string> problems_;
    std::vector<Archiving> archivings_;
    std::optional<Retention> retention_;
    std::vector<Removal> removed_;
};

}  // namespace ombrel
