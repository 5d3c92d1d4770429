// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Runs a sub-command of `ombrel` and keeps what it printed.
#pragma once

#include <gtest/gtest.h>

#include <span>
#include <string>
#include <vector>

namespace ombrel::test {

struct CommandRun {
    int run(int (*command)(std::span<char* const>), std::vector<std::string> words) {
        std::vector<char*> pointers;
        for (std::string& word : words)
            pointers.push_back(word.data());
        ::testing::internal::CaptureStdout();
        ::testing::internal::CaptureStderr();
        const int exitCode = command(pointers);
        out = ::testing::internal::GetCapturedStdout();
        err = ::testing::internal::GetCapturedStderr();
        return exitCode;
    }

    std::string out;
    std::string err;
};

}  // namespace ombrel::test
