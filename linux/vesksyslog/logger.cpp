// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The events that the library tells of.
#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "linux/vesksyslog/event_log.h"
#include "platform/vesksyslog.h"

namespace ombrel {

namespace {

constexpr Event kServiceStarted = {"service_started", "bdc8076396c44b8b951438b93a49c915", "Service started",
                                   false};
constexpr Event kServiceStopped = {"service_stopped", "4b97e3b976d34e2d8f798d71fabe9ce3", "Service stopped",
                                   false};
constexpr Event kArchiveFinished = {"archive_finished", "3317f648d1194d3286293f6a661f9de6", "Archive finished",
                                    false};
constexpr Event kArchiveFailed = {"archive_failed", "f065c3e56fdb49a89dd4f8aebe69eb9b", "Archiving failed", true};

void report(const Event& event, const std::string& text) noexcept try {
    (void)sendToJournal(kJournalSocket, event, text);  // not every box has a journal
    if (!appendEventLine(kEventFile, event, text)) {
        Debuger::MSG(2, std::string("Event file ") + kEventFile + " cannot be written: " + std::strerror(errno));
    }
} catch (const std::bad_alloc&) {
    Debuger::MSG(0, "Out of memory");
}

}  // namespace

}  // namespace ombrel

Logger::Logger() = default;
Logger::~Logger() = default;

void Logger::LogAddServStart(std::string description) {
    ombrel::report(ombrel::kServiceStarted, description);
}

void Logger::LogAddServStop(std::string description) {
    ombrel::report(ombrel::kServiceStopped, description);
}

void Logger::LogAddArchFinish(std::string archivePath) {
    ombrel::report(ombrel::kArchiveFinished, archivePath);
}

void Logger::LogAddArchFailed(std::string archivePath) {
    ombrel::report(ombrel::kArchiveFailed, archivePath);
}
