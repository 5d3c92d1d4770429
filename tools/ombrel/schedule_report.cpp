// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/schedule_report.h"

#include <cstdio>

#include "linux/common/text_escape.h"
#include "tools/ombrel/answer.h"
#include "tools/ombrel/time_words.h"

namespace ombrel {

void ScheduleReport::problem(const std::string& what) {
    failed(complain(1, what), what);
}

void ScheduleReport::failed(int exitCode, const std::string& what) {
    problems_.push_back(what);
    if (exitCode_ == 0) exitCode_ = exitCode;
}

void ScheduleReport::line(const std::string& text) {
    hasLines_ = true;
    if (!asJson_) written_ = say(text + "\n") && std::fflush(stdout) == 0 && written_;
}

void ScheduleReport::archiving(const Archiving& each) {
    archivings_.push_back(each);
    if (each.hasFailed()) problem(each.path + " " + whyNotArchived(each));
    if (each.end != Archiving::End::kDone) return;
    line((isDry_ ? "would archive " : "archived ") + escapeForLine(each.path) + " (" + std::to_string(each.rows) +
         " rows)");
}

void ScheduleReport::removal(const Removal& removal, const std::string& wrong) {
    if (!wrong.empty()) {
        problem(retention_->archiveOf(removal).path + " could not be removed: " + wrong);
        return;
    }
    removed_.push_back(removal);
    line((isDry_ ? "would remove " : "removed ") + retention_->textOf(removal));
}

std::string ScheduleReport::json(long long now) const {
    JsonWriter json;
    json.beginObject()
        .member("time", timeJson(now))
        .member("dry_run", isDry_)
        .member("ok", problems_.empty())
        .key("problems")
        .beginArray();
    for (const std::string& problem : problems_)
        json.text(problem);
    json.endArray();
    addArchivings(json, archivings_);
    json.key("removed").beginArray();
    for (const Removal& removal : removed_)
        retention_->addJson(json, removal);
    json.endArray();
    const RetentionPlan plan = retention_ ? retention_->plan() : RetentionPlan{};
    return json.member("over_bytes", plan.overBytes)
        .member("missing_free_bytes", plan.missingFreeBytes)
        .endObject()
        .takeLine();
}

int ScheduleReport::end(long long now) {
    if (retention_) {
        for (const std::string& text : retention_->shortfalls())
            line(text);
    }
    if (asJson_) {
        written_ = say(json(now));
    } else if (!hasLines_ && problems_.empty()) {
        written_ = say("nothing to do\n");
    }
    return endOfOutput(written_, exitCode_);
}

}  // namespace ombrel
