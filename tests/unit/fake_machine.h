// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the commands ask of the machine itself beside the platform, as a test wants it. Folders are those of the
// recording platform.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/unit/fake_machine_checks.h"
#include "tools/ombrel/follow_watch.h"

namespace ombrel::test {

struct FakeMachine {
    int turnResult = 0;  ///< what Turn::take() answers
    int turnsTaken = 0;
    // Of the schedule.
    bool isTurnBusy = false;            ///< Turn::tryTake() finds somebody else
    int beats = 0;                      ///< how often a metronome beats until it is asked to end
    int beatSeconds = 0;                ///< between two of them
    std::set<std::string> conversions;  ///< archives that are being converted
    std::vector<std::string> removals;  ///< events: path, reason, bytes
    CheckedMachine checked{};

    std::vector<std::vector<std::string>> executed;  ///< path and words of the programs that took over
    int execResult = 0;                              ///< the exit code of such a program

    /// What is in ZIP files: the paths of databases, by the path of the file.
    std::map<std::string, std::vector<std::string>> zipped;
    std::vector<std::string> unpacked;  ///< paths of ZIP files, in order
    /// What happens while somebody who follows files waits; without it he is asked to stop.
    std::function<FollowWake()> whileWaiting;
    std::set<std::string> watchedFolders;
    bool canWatch = true;

    std::string output;  ///< what was written to the output file, or to standard output in its place
    bool outputIsFull = false;
    bool stopAsked = false;  ///< by a signal
};

/// The same object for everybody; a CommandLineRun begins with a fresh one.
FakeMachine& fakeMachine();

}  // namespace ombrel::test
