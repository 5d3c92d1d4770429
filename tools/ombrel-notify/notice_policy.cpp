// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-notify/notice_policy.h"

#include <syslog.h>

#include "linux/common/path_parts.h"
#include "linux/common/text_escape.h"

namespace ombrel {

namespace {

constexpr const char* kArchive = "archive";
constexpr std::string_view kJob = "job ";
constexpr std::string_view kPort = "udp ";

std::string howItEnded(const EventLine& line) {
    if (!line.signal.empty()) return "signal " + line.signal;
    return line.exitCode ? "exit code " + std::to_string(*line.exitCode) : "nobody knows how";
}

}  // namespace

std::string shown(std::string_view text) {
    constexpr std::size_t kLongest = 512;
    std::string line = escapeForLine(text.substr(0, kLongest));
    const bool isCut = line.size() > kLongest || text.size() > kLongest;
    if (!isCut) return line;
    std::size_t end = std::min(kLongest, line.size());
    while (end > 0 && end < line.size() && (static_cast<unsigned char>(line[end]) & 0xc0U) == 0x80U)
        --end;  // between two characters
    return line.substr(0, end) + "...";
}

void NoticePolicy::event(const EventLine& line, long long now) {
    if (line.event == "archive_failed") archiveFailed(line.text, now);
    if (line.event == "archive_finished") archiveFinished(line.text);
    if (line.event == "job_died") jobDied(line, now);
}

void NoticePolicy::archiveFailed(const std::string& path, long long now) {
    const std::string folder = shown(folderOf(path));
    if (record_.failingFolders.contains(folder)) return;
    if (record_.failingFolders.size() < kMostFolders) record_.failingFolders.insert(folder);
    happened(kArchive, 1, path.empty() ? "no name was left for the archive" : shown(path), now);
}

void NoticePolicy::archiveFinished(const std::string& path) {
    record_.failingFolders.erase(shown(folderOf(path)));
    record_.failingFolders.erase(folderOf(""));  // a failure that had no path yet may have been in any folder
}

void NoticePolicy::jobDied(const EventLine& line, long long now) {
    const std::string job = line.job.empty() ? "(no name)" : shown(line.job);
    happened(std::string(kJob) + job, 1, "Job " + job + " ended by itself (" + shown(howItEnded(line)) + ")", now);
}

void NoticePolicy::datagramsLost(std::uint16_t port, unsigned long long count, long long now) {
    if (count > 0) happened(std::string(kPort) + std::to_string(port), count, std::to_string(port), now);
}

void NoticePolicy::happened(std::string name, unsigned long long count, const std::string& detail, long long now) {
    // Causes have names that strangers can think of: too many share one.
    if (record_.causes.size() >= kMostCauses && !record_.causes.contains(name)) name = std::string(kJob) + "-";
    const auto [at, isNew] = record_.causes.try_emplace(name);
    NoticeRecord::Cause& cause = at->second;
    cause.pending += count;
    cause.detail = detail;
    if (!isNew && now < cause.toldAt + quietSeconds_) return;
    tell(name, cause, !isNew);
    cause.toldAt = now;
    cause.pending = 0;
}

void NoticePolicy::tick(long long now) {
    for (auto at = record_.causes.begin(); at != record_.causes.end();) {
        auto& [name, cause] = *at;
        if (now < cause.toldAt + quietSeconds_) {
            ++at;
        } else if (cause.pending == 0) {
            at = record_.causes.erase(at);  // over: the next time is told at once
        } else {
            tell(name, cause, true);
            cause.toldAt = now;
            cause.pending = 0;
            ++at;
        }
    }
}

void NoticePolicy::tell(const std::string& name, const NoticeRecord::Cause& cause, bool again) {
    const std::string count = std::to_string(cause.pending);
    if (name == kArchive) {
        const std::string what =
            again ? "Archiving failed " + count + " more times, the last time: " : "Archiving failed: ";
        sink_(LOG_ERR, what + cause.detail + "; the system log says at which step");
    } else if (name.starts_with(kPort)) {
        sink_(LOG_WARNING, count + (again ? " more" : "") + " datagrams to UDP port " + cause.detail +
                               " were lost: the receive buffer was full");
    } else {
        sink_(LOG_ERR, cause.detail + (again ? " again, " + count + " more times" : "") + "; its log says why");
    }
}

void NoticePolicy::watchDestination(const std::string& folder) {
    const std::string destination = shown(folder);
    if (destination == record_.destination) return;
    // At the first settings that are read nothing is known of the ones before.
    if (!record_.destination.empty()) record_.failingFolders.clear();
    record_.destination = destination;
    record_.isLow = false;
}

void NoticePolicy::freeSpace(long long freeMib, long long boundMib) {
    const bool isBelow = freeMib < boundMib;
    const bool isOverAgain = freeMib >= boundMib + boundMib / 10;  // not at each megabyte up and down
    if (boundMib <= 0) {
        record_.isLow = false;
    } else if (!record_.isLow && isBelow) {
        record_.isLow = true;
        sink_(LOG_WARNING, "Only " + std::to_string(freeMib) + " MiB are free on the volume of " +
                               record_.destination + ", less than the " + std::to_string(boundMib) +
                               " MiB of notify_free_mib");
    } else if (record_.isLow && isOverAgain) {
        record_.isLow = false;
        sink_(LOG_WARNING, "There is room again on the volume of " + record_.destination + ": " +
                               std::to_string(freeMib) + " MiB are free");
    }
}

}  // namespace ombrel
