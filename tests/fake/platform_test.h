// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The fixture of every test on the fake platform: a fresh platform, and nothing left over at the end.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/fake/fake_platform.h"

namespace ombrel::test {

using Lines = std::vector<std::string>;

class PlatformTest : public ::testing::Test {
protected:
    void TearDown() override {
        EXPECT_THAT(platform.leaks(), ::testing::IsEmpty()) << "not released";
        EXPECT_THAT(platform.live.misuses(), ::testing::IsEmpty());
    }

    FakePlatform platform;
};

template <typename Case>
class PlatformTestWith : public PlatformTest, public ::testing::WithParamInterface<Case> {};

/// Names the tests of a table by the `name` member of its rows.
struct CaseName {
    template <typename Case>
    std::string operator()(const ::testing::TestParamInfo<Case>& info) const {
        return info.param.name;
    }
};

}  // namespace ombrel::test
