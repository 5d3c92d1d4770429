// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Runs a whole command line of `ombrel` and keeps what it printed.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/fake_machine.h"
#include "tools/ombrel/commands.h"

namespace ombrel::test {

struct CommandLineRun {
    CommandLineRun() { fakeMachine() = {}; }

    int run(const std::vector<std::string>& words) { return run(ombrelCommands(), words); }
    /// The words of a group, without its name.
    int runBelow(const std::string& group, std::vector<std::string> words) {
        words.insert(words.begin(), group);
        return run(words);
    }
    int run(const Command& root, const std::vector<std::string>& words) {
        ::testing::internal::CaptureStdout();
        ::testing::internal::CaptureStderr();
        const int exitCode = runCommandLine(root, words);
        out = ::testing::internal::GetCapturedStdout();
        err = ::testing::internal::GetCapturedStderr();
        return exitCode;
    }

    std::string out;
    std::string err;
};

}  // namespace ombrel::test
