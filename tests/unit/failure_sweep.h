// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Runs an operation with each of its platform calls failing in turn: the result is the expected one, nothing
// leaks, nothing is released twice. Operations are instances of the suite, in whichever file they stand.
#pragma once

#include <functional>
#include <map>
#include <ostream>
#include <string>

#include "tests/fake/platform_test.h"

namespace ombrel::test {

struct Operation {
    std::string name;
    std::function<void(FakePlatform&)> prepare;
    std::function<std::string()> run;
    std::string normally;
    /// "Call" or "Call#2" (the second one) -> the result when it fails; any other failure changes nothing.
    std::map<std::string, std::string> otherwise;

    friend void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }
};

class FailureSweep : public ::testing::TestWithParam<Operation> {
protected:
    struct Outcome {
        std::string result;
        Lines calls;  // the names of those that could have failed
    };

    /// Runs the operation on a fresh platform; `failing` is the number of the call that fails, 0 for none.
    static Outcome runWith(int failing, bool failuresHandOutObjects) {
        FakePlatform platform;
        platform.failuresHandOutObjects = failuresHandOutObjects;
        GetParam().prepare(platform);
        platform.calls.clear();
        platform.calls.failCallNumber(failing);
        Outcome outcome;
        outcome.result = GetParam().run();
        outcome.calls = platform.calls.failableCalls();
        EXPECT_THAT(platform.leaks(), ::testing::IsEmpty());
        EXPECT_THAT(platform.live.misuses(), ::testing::IsEmpty());
        return outcome;
    }
    static std::string expected(const std::string& call, int occurrence) {
        const auto& table = GetParam().otherwise;
        const auto exact = table.find(call + "#" + std::to_string(occurrence));
        if (exact != table.end()) return exact->second;
        const auto any = table.find(call);
        return any != table.end() ? any->second : GetParam().normally;
    }
    static void sweep(bool failuresHandOutObjects) {
        const Outcome normal = runWith(0, failuresHandOutObjects);
        ASSERT_EQ(normal.result, GetParam().normally);
        ASSERT_FALSE(normal.calls.empty());
        std::map<std::string, int> seen;
        for (std::size_t i = 0; i < normal.calls.size(); ++i) {
            const std::string& call = normal.calls[i];
            const int occurrence = ++seen[call];
            SCOPED_TRACE(call + "#" + std::to_string(occurrence));
            const Outcome outcome = runWith(static_cast<int>(i) + 1, failuresHandOutObjects);
            EXPECT_EQ(outcome.result, expected(call, occurrence));
        }
        expectTableIsUsed(seen);
    }
    /// A row of the table for a call that is never made would test nothing.
    static void expectTableIsUsed(std::map<std::string, int>& seen) {
        for (const auto& row : GetParam().otherwise) {
            const auto mark = row.first.find('#');
            const int occurrence = mark == std::string::npos ? 1 : std::stoi(row.first.substr(mark + 1));
            EXPECT_GE(seen[row.first.substr(0, mark)], occurrence) << row.first;
        }
    }
};

inline std::string operationName(const ::testing::TestParamInfo<Operation>& info) {
    return info.param.name;
}

}  // namespace ombrel::test
