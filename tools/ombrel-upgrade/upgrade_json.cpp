// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/upgrade_json.h"

#include <array>
#include <cstdio>

#include "linux/common/text_escape.h"

namespace ombrel {

namespace {

std::string member(const char* name, const std::string& value) {
    return std::string(",\"") + name + "\":" + value;
}

std::string member(const char* name, unsigned long long value) {
    return member(name, std::to_string(value));
}

/// An empty text is null.
std::string textMember(const char* name, const std::string& value) {
    return member(name, value.empty() ? "null" : quoteJson(value));
}

std::string secondsText(double seconds) {
    std::array<char, 64> text{};
    (void)std::snprintf(text.data(), text.size(), "%.3f", seconds);
    return text.data();
}

const char* stateName(UpgradeEnd end) {
    switch (end) {
        case UpgradeEnd::kDone:
            return "\"done\"";
        case UpgradeEnd::kStopped:
            return "\"stopped\"";
        case UpgradeEnd::kFailed:
            break;
    }
    return "\"failed\"";
}

const char* kindName(OldKind kind) {
    switch (kind) {
        case OldKind::kSetAside:
            return "\"set_aside\"";
        case OldKind::kZip:
            return "\"zip\"";
        case OldKind::kDatabase:
            break;
    }
    return "\"database\"";
}

std::string planLine(const FoundDatabase& file, const ArchivePath& archivePath) {
    const bool isZip = file.kind == OldKind::kZip;
    const std::string newFile = file.kind == OldKind::kSetAside ? archivePath(file.path) : file.path;
    return "{\"type\":\"plan\"" + member("file", quoteJson(file.path)) + member("kind", kindName(file.kind)) +
           member("rows", isZip ? "null" : std::to_string(file.rows)) +
           member("databases", isZip ? std::to_string(file.databases) : "1") + member("size_bytes", file.bytes) +
           member("needed_bytes", spaceNeedOf(file).atWork) +
           member("done_rows", isZip ? "null" : std::to_string(file.workRows)) + textMember("new_file", newFile) +
           "}\n";
}

}  // namespace

std::string fileJson(const std::string& path, const UpgradeOutcome& outcome, double seconds,
                     const std::string& oldFile) {
    const bool isDone = outcome.end == UpgradeEnd::kDone;
    return "{\"type\":\"file\"" + member("file", quoteJson(path)) + member("state", stateName(outcome.end)) +
           member("rows", isDone ? std::to_string(outcome.rows) : "null") +
           member("duration_seconds", secondsText(seconds)) + textMember("old_file", oldFile) +
           textMember("notice", outcome.notice) + textMember("error", outcome.error) + "}\n";
}

std::string planJson(const std::vector<FoundDatabase>& files, const std::vector<VolumeNeed>& volumes,
                     bool removeOld, const ArchivePath& archivePath, const SpaceCheck& isEnough,
                     const FreeBytes& freeBytes) {
    std::string text;
    for (const FoundDatabase& file : files)
        text += planLine(file, archivePath);
    for (const VolumeNeed& volume : volumes) {
        const unsigned long long needed = removeOld ? volume.neededRemovingOld : volume.needed;
        text += "{\"type\":\"volume\"" + member("folder", quoteJson(volume.folder)) +
                member("needed_bytes", needed) + member("free_bytes", freeBytes(volume.folder)) +
                member("enough", isEnough(volume.folder, needed) ? "true" : "false") + "}\n";
    }
    return text;
}

std::string noteJson(const std::string& text, const std::string& path) {
    return "{\"type\":\"note\"" + member("text", quoteJson(text)) + textMember("file", path) + "}\n";
}

std::string summaryJson(std::size_t upgraded, std::size_t failed, std::size_t left) {
    return "{\"type\":\"summary\"" + member("upgraded", upgraded) + member("failed", failed) +
           member("left", left) + "}\n";
}

}  // namespace ombrel
