// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/archive_event.h"

#include <array>
#include <cerrno>
#include <cstring>

#include "linux/vesksyslog/event_log.h"
#include "tools/ombrel/answer.h"

namespace ombrel {

void enterArchiveRemoved(const std::string& path, RemovalReason reason, unsigned long long bytes) {
    const std::array<EventField, 2> fields = {
        {{"reason", std::string(removalReasonName(reason))}, {"bytes", static_cast<long long>(bytes)}}};
    (void)sendToJournal(kJournalSocket, kArchiveRemoved, path);  // not every box has a journal
    if (!appendEventLine(kEventFile, kArchiveRemoved, path, fields)) {
        (void)complain(1, std::string(kEventFile) + " cannot be written: " + std::strerror(errno) +
                              "; the removal of " + path + " is no event");
    }
}

}  // namespace ombrel
