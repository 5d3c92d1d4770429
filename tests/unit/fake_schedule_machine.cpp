// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the schedule asks of the machine, as a test wants it.
#include <cerrno>

#include "tests/unit/fake_machine.h"
#include "tools/ombrel/archive_event.h"
#include "tools/ombrel/conversions_now.h"
#include "tools/ombrel/metronome.h"
#include "tools/ombrel/turn.h"

namespace ombrel {

using test::fakeMachine;

std::set<std::string> conversionsNow() {
    return fakeMachine().conversions;
}

void enterArchiveRemoved(const std::string& path, RemovalReason reason, unsigned long long bytes) {
    fakeMachine().removals.push_back(path + " " + removalReasonName(reason) + " " + std::to_string(bytes));
}

Turn::Try Turn::tryTake() {
    ++fakeMachine().turnsTaken;
    return fakeMachine().isTurnBusy ? Try::kBusy : Try::kTaken;
}

Metronome::Metronome() = default;
Metronome::~Metronome() = default;

bool Metronome::begin(int seconds, int /*readyFd*/) {
    fakeMachine().beatSeconds = seconds;
    errno = EMFILE;
    return fakeMachine().beats > 0;
}

bool Metronome::isAskedToEnd() const {
    return fakeMachine().beats <= 0;
}

bool Metronome::await() {
    return --fakeMachine().beats > 0;
}

}  // namespace ombrel
