// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The two places where an event of the box is kept. Both are best effort: an event that cannot be kept
// must not stop what it tells of.
#pragma once

#include <span>
#include <string>
#include <variant>

namespace ombrel {

struct Event {
    const char* name;       ///< "archive_finished"
    const char* messageId;  ///< 128 bits in hexadecimal digits: finds all entries of this kind in the journal
    const char* sentence;   ///< what the journal's line begins with
    bool isFailure;
};

/// A member of an event's line beside the usual ones.
struct EventField {
    const char* name;
    std::variant<long long, std::string> value;
};

/// A service job that ended although nobody had asked it to. Fields: `job`, and `exit_code` (a number) or
/// `signal` ("KILL").
constexpr Event kJobDied = {"job_died", "bacf5e2866014b0e8fbefd69d702336e", "Job ended by itself", true};

/// An archive that a limit of the retention has removed; the text is its path. Fields: `reason` ("days", "size",
/// "free_space") and `bytes`.
constexpr Event kArchiveRemoved = {"archive_removed", "2343fd5669504c72b980fb2914006e9b", "Archive removed",
                                   false};

constexpr const char* kEventFile = "/var/packages/Ombrel/target/service/log/events.jsonl";
constexpr const char* kJournalSocket = "/run/systemd/journal/socket";
/// A fuller event file becomes "<path>.1", in place of an older one.
constexpr long long kEventFileLimit = 16LL * 1024 * 1024;

/// Appends one JSON line, in one write: lines of several processes never mix. Makes the file and its folder,
/// no folder above it. Waits at most a second for a process that holds the file's lock, and goes on without
/// it. False with errno set.
bool appendEventLine(const std::string& path, const Event& event, const std::string& text,
                     std::span<const EventField> fields = {});

/// Sends an entry to the journal. False with errno set, ENOENT or ECONNREFUSED where none listens. Waits at
/// most a second for a journal that is behind.
bool sendToJournal(const std::string& socketPath, const Event& event, const std::string& text);

}  // namespace ombrel
