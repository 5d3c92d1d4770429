// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/store/host_folder.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace ombrel {
namespace {

TEST(EncodeHostName, KeepsOrdinaryNames) {
    for (const char* const name : {"alpha", "web-01.example.com", "192.0.2.1", "_x", "A_b"})
        EXPECT_EQ(encodeHostName(name), name);
}

TEST(EncodeHostName, LeavesNoWayOutOfTheArchiveFolder) {
    EXPECT_EQ(encodeHostName("../../etc"), "%2E.%2F..%2Fetc");
    EXPECT_EQ(encodeHostName("."), "%2E");
    EXPECT_EQ(encodeHostName(".."), "%2E.");
    EXPECT_EQ(encodeHostName("a/b"), "a%2Fb");
    EXPECT_EQ(encodeHostName(std::string("a\0b", 3)), "a%00b");
    EXPECT_EQ(encodeHostName("\x1b[31m"), "%1B%5B31m");
    EXPECT_EQ(encodeHostName("@tmp"), "%40tmp");
    EXPECT_EQ(encodeHostName("2001:db8::1"), "2001%3Adb8%3A%3A1");
    EXPECT_EQ(encodeHostName("\xc3\xa4"), "%C3%A4");
    EXPECT_EQ(encodeHostName(""), "%00");
}

TEST(EncodeHostName, KeepsClearOfNamesThatMeanSomethingElse) {
    EXPECT_EQ(encodeHostName("local"), "%6Cocal");
    EXPECT_EQ(encodeHostName("_ARCH"), "%5FARCH");
    EXPECT_EQ(encodeHostName("VESKSYSLOGDB__ARCH.DB"), "%56ESKSYSLOGDB__ARCH.DB");
    EXPECT_EQ(encodeHostName("localhost"), "localhost");
    EXPECT_EQ(encodeHostName("+other"), "%2Bother");
}

TEST(EncodeHostName, BoundsLongNamesAndKeepsThemApart) {
    const std::string hundred(100, 'h');
    EXPECT_EQ(encodeHostName(hundred), hundred);
    const std::string longName(5000, 'h');
    const std::string folder = encodeHostName(longName);
    EXPECT_EQ(folder.size(), kMaxHostFolder);
    EXPECT_NE(folder, encodeHostName(longName + "x"));
    EXPECT_EQ(encodeHostName(std::string(5000, '/')).size(), kMaxHostFolder);
}

TEST(EncodeHostName, GivesDifferentNamesToDifferentHosts) {
    std::set<std::string> folders;
    for (int byte = 0; byte < 256; ++byte)
        folders.insert(encodeHostName(std::string("x") + static_cast<char>(byte)));
    EXPECT_EQ(folders.size(), 256U);
}

TEST(DatabasePaths, AreThoseThatTheArchiverLooksFor) {
    EXPECT_EQ(sharedDatabasePath("/srv/logs"), "/srv/logs/VESKSYSLOGDB__ARCH.DB");
    EXPECT_EQ(hostDatabasePath("/srv/logs", "alpha"), "/srv/logs/alpha/VESKSYSLOGDB_alpha.DB");
}

}  // namespace
}  // namespace ombrel
