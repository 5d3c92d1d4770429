// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// For tests that mount things over things: they run in a private root only, and what they mount is gone at
// the end of each test.
#pragma once

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace ombrel::test {

class PrivateRootTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::getenv("OMBREL_PRIVATE_ROOT") == nullptr) GTEST_SKIP() << "only under scripts/private-root";
        std::filesystem::create_directories(folder);
    }
    void TearDown() override {
        for (auto point = mounts_.rbegin(); point != mounts_.rend(); ++point)
            EXPECT_EQ(::umount2(point->c_str(), MNT_DETACH), 0) << *point;
        if (std::getenv("OMBREL_PRIVATE_ROOT") != nullptr) std::filesystem::remove_all(folder);
    }

    std::string makeFolder(const std::string& name) {
        std::filesystem::create_directories(folder + "/" + name);
        return folder + "/" + name;
    }
    void mountTmpfs(const std::string& point) { mounted(::mount("x", point.c_str(), "tmpfs", 0, nullptr), point); }
    void bind(const std::string& from, const std::string& point) {
        mounted(::mount(from.c_str(), point.c_str(), nullptr, MS_BIND, nullptr), point);
    }
    /// Remembers what somebody else has mounted.
    void mounted(int result, const std::string& point) {
        ASSERT_EQ(result, 0) << point << ": " << std::strerror(errno);
        mounts_.push_back(point);
    }
    static void write(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

    const std::string folder = "/srv/test";

private:
    std::vector<std::string> mounts_;
};

}  // namespace ombrel::test
