// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the commands ask of the machine itself beside the platform, as a test wants it. Folders are those of the
// recording platform.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace ombrel::test {

struct FakeMachine {
    int turnResult = 0;  ///< what Turn::take() answers
    int turnsTaken = 0;

    std::vector<std::vector<std::string>> executed;  ///< path and words of the programs that took over
    int execResult = 0;                              ///< the exit code of such a program

    /// What is in ZIP files: the paths of databases, by the path of the file.
    std::map<std::string, std::vector<std::string>> zipped;
    std::vector<std::string> unpacked;  ///< paths of ZIP files, in order
    int interruptedBy = 0;              ///< the signal that comes
};

/// The same object for everybody; a CommandLineRun begins with a fresh one.
FakeMachine& fakeMachine();

}  // namespace ombrel::test
