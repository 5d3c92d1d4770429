// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/retention_run.h"

#include <sys/vfs.h>

#include <cerrno>
#include <cstring>

#include "linux/common/progress_bar.h"
#include "linux/common/text_escape.h"
#include "tools/ombrel/archive_event.h"
#include "tools/ombrel/time_words.h"

namespace ombrel {

namespace {

std::vector<RetainedArchive> factsOf(const ArchiveScan& scan) {
    std::vector<RetainedArchive> facts;
    for (const ArchiveFiles& archive : scan.archives)
        facts.push_back(archive.facts);
    return facts;
}

}  // namespace

Retention::Retention(const std::string& archiveFolder, const RetentionSettings& settings, long long now)
    : settings_(settings), scan_(scanArchives(archiveFolder, now)) {
    struct statfs64 status {};
    if (statfs64(archiveFolder.c_str(), &status) == 0) {
        freeBytes_ =
            static_cast<unsigned long long>(status.f_bavail) * static_cast<unsigned long long>(status.f_bsize);
    } else if (settings.freeBytes > 0) {
        scan_.notes.push_back(archiveFolder + ": its free space cannot be told (" + std::strerror(errno) + ")");
    }
    plan_ = planRetention(factsOf(scan_), freeBytes_, localDay(now), settings_);
}

unsigned long long Retention::archiveBytes() const {
    unsigned long long bytes = 0;
    for (const ArchiveFiles& archive : scan_.archives)
        bytes += archive.facts.bytes;
    return bytes;
}

void Retention::apply(const std::function<void(const Removal&, const std::string& wrong)>& tell,
                      const std::function<bool()>& goesOn) const {
    for (const Removal& removal : plan_.removals) {
        if (goesOn && !goesOn()) return;
        const std::string wrong = removeArchive(scan_.archives[removal.index]);
        const RetainedArchive& archive = archiveOf(removal);
        if (wrong.empty()) enterArchiveRemoved(archive.path, removal.reason, archive.bytes);
        tell(removal, wrong);
    }
}

std::string Retention::textOf(const Removal& removal) const {
    const RetainedArchive& archive = archiveOf(removal);
    return escapeForLine(archive.path) + " (" + sizeText(archive.bytes) +
           "): " + removalReasonText(removal.reason, settings_);
}

std::vector<std::string> Retention::shortfalls() const {
    constexpr const char* kWhy = "what is left is of the newest days or in use";
    std::vector<std::string> lines;
    if (plan_.overBytes > 0) {
        lines.push_back("the archives take " + sizeText(plan_.overBytes) + " more than keep_gib allows: " + kWhy);
    }
    if (plan_.missingFreeBytes > 0) {
        lines.push_back(sizeText(plan_.missingFreeBytes) +
                        " of the room that free_gib asks for are missing: " + kWhy);
    }
    return lines;
}

void Retention::addJson(JsonWriter& json, const Removal& removal) const {
    const ArchiveFiles& archive = scan_.archives[removal.index];
    json.beginObject()
        .member("path", archive.facts.path)
        .member("first_day", archive.facts.firstDay)
        .member("last_day", archive.facts.lastDay)
        .member("size_bytes", archive.facts.bytes)
        .member("reason", removalReasonName(removal.reason))
        .member("what", removalReasonText(removal.reason, settings_))
        .key("files")
        .beginArray();
    for (const ArchiveFiles::File& file : archive.files)
        json.text(archive.folderPath + "/" + file.name);
    json.endArray().endObject();
}

}  // namespace ombrel
