// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The sockets of a process: of this one, and of one made of files.
#include "linux/common/process_sockets.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <array>
#include <cstdlib>
#include <filesystem>

#include "linux/common/fd.h"

namespace ombrel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace fs = std::filesystem;

TEST(ProcessSockets, AreThoseThatItHasOpen) {
    std::array<int, 2> pair{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()), 0);
    const Fd first(pair[0]);
    Fd second(pair[1]);
    struct stat ofFirst {};
    struct stat ofSecond {};
    ASSERT_EQ(::fstat(first.get(), &ofFirst), 0);
    ASSERT_EQ(::fstat(second.get(), &ofSecond), 0);
    EXPECT_TRUE(socketsOfProcess("/proc/self").contains(ofFirst.st_ino));
    EXPECT_TRUE(socketsOfProcess("/proc/self").contains(ofSecond.st_ino));
    second.reset();
    EXPECT_TRUE(socketsOfProcess("/proc/self").contains(ofFirst.st_ino));
    EXPECT_FALSE(socketsOfProcess("/proc/self").contains(ofSecond.st_ino));
}

TEST(ProcessSockets, AreNoneWhereThereIsNoProcess) {
    EXPECT_THAT(socketsOfProcess("/proc/-1"), IsEmpty());
}

TEST(ProcessSockets, AreKnownByTheirLinks) {
    std::string folder = (fs::temp_directory_path() / "ombrel-sockets-XXXXXX").string();
    ASSERT_NE(::mkdtemp(folder.data()), nullptr);
    fs::create_directory(folder + "/fd");
    int descriptor = 0;
    for (const char* const target :
         {"socket:[21]", "socket:[22]", "socket:[21]", "pipe:[23]", "socket:[24", "socket:[2x5]", "socket:[]",
          "socket:[-26]", "socket:[99999999999999999999999]", "/tmp/socket:[27]", "/dev/null",
          "socket:[000000000000000000000000000000000000000000000000000000028]"})
        fs::create_symlink(target, folder + "/fd/" + std::to_string(descriptor++));
    EXPECT_THAT(socketsOfProcess(folder), ElementsAre(21, 22));
    fs::remove_all(folder);
}

}  // namespace
}  // namespace ombrel
