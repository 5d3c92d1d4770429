// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What is read from testparm's output and from the files of user shares.
#include "linux/vesksdk/share_definitions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace ombrel;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace ombrel {
inline bool operator==(const Share& a, const Share& b) {
    return a.name == b.name && a.path == b.path;
}
inline void PrintTo(const Share& share, std::ostream* out) {
    *out << share.name << " -> " << share.path;
}
}  // namespace ombrel

namespace {

std::vector<Share> sharesIn(std::string_view text) {
    return parseDefinitions(text).shares;
}

TEST(Definitions, AreReadInTheirOrderWithBlanksInNamesAndPaths) {
    EXPECT_THAT(sharesIn("# Global parameters\n"
                         "[global]\n\tworkgroup = X\n\tusershare path = /var/lib/samba/usershares\n\n\n"
                         "[sp ace]\n\tcomment = a = b\n\tpath = /srv/two words\n\n\n"
                         "[Logs]\n\tpath = /srv/logs/\n"),
                ElementsAre(Share{"sp ace", "/srv/two words"}, Share{"Logs", "/srv/logs"}));
}

TEST(Definitions, KeepTheParametersOfTheServer) {
    const ShareDefinitions definitions =
        parseDefinitions("[global]\n\tusershare max shares = 7\n\tempty = \n[a]\n\tpath = /a\n");
    EXPECT_EQ(definitions.global.at("usershare max shares"), "7");
    EXPECT_EQ(definitions.global.at("empty"), "");
    EXPECT_EQ(definitions.global.count("path"), 0U);
}

struct Section {
    const char* name;
    const char* text;
};
class NoShare : public ::testing::TestWithParam<Section> {};

TEST_P(NoShare, IsMadeOf) {
    EXPECT_THAT(sharesIn(GetParam().text), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Sections, NoShare,
                         ::testing::Values(Section{"TheServer", "[global]\n\tpath = /a\n"},
                                           Section{"Homes", "[homes]\n\tpath = /home\n"},
                                           Section{"Printers", "[printers]\n\tpath = /var/tmp\n"},
                                           Section{"PrinterDrivers",
                                                   "[print$]\n\tpath = /var/lib/samba/printers\n"},
                                           Section{"Ipc", "[ipc$]\n\tpath = /tmp\n"},
                                           Section{"APrinter", "[laser]\n\tpath = /var/tmp\n\tprintable = Yes\n"},
                                           Section{"NotAvailable", "[off]\n\tavailable = No\n\tpath = /srv/off\n"},
                                           Section{"NoPath", "[nopath]\n\tcomment = nothing\n"},
                                           Section{"RelativePath", "[rel]\n\tpath = srv/x\n"},
                                           Section{"APathForEachUser", "[user]\n\tpath = /srv/%U\n"},
                                           Section{"NoName", "[]\n\tpath = /srv/x\n"},
                                           Section{"NoSection", "path = /srv/x\n"}, Section{"Nothing", ""}),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(Definitions, TakeAPathInQuotesWithoutThem) {
    EXPECT_THAT(sharesIn("[a]\n\tpath = \"/srv/two words\"\n[b]\npath = /\n"),
                ElementsAre(Share{"a", "/srv/two words"}, Share{"b", "/"}));
}

TEST(UserShare, HasTheNameThatItsOwnerWrote) {
    EXPECT_EQ(parseUserShare("music",
                             "#VERSION 2\npath=/srv/music\ncomment=\nusershare_acl=S-1-1-0:R\n"
                             "guest_ok=n\nsharename=Music\n"),
              (Share{"Music", "/srv/music"}));
}

TEST(UserShare, HasItsFilesNameWhenItStatesNone) {
    EXPECT_EQ(parseUserShare("music", "#VERSION 1\npath=/srv/music\n"), (Share{"music", "/srv/music"}));
}

TEST(UserShare, CannotTakeAnotherSharesName) {
    EXPECT_EQ(parseUserShare("music", "path=/srv/music\nsharename=Logs\n").name, "music");
}

TEST(UserShare, IsNoneWithoutAFolderOrUnderAReservedName) {
    EXPECT_EQ(parseUserShare("music", "").path, "");
    EXPECT_EQ(parseUserShare("music", "path=music\n").path, "");
    EXPECT_EQ(parseUserShare("homes", "path=/srv/x\n").path, "");
}

TEST(ShareNames, AreComparedWithoutCase) {
    EXPECT_TRUE(sameShareName("Logs", "lOGS"));
    EXPECT_TRUE(sameShareName("\u00e4\u00d6", "\u00c4\u00f6"));
    EXPECT_TRUE(sameShareName("\u0416", "\u0436"));
    EXPECT_FALSE(sameShareName("Logs", "Logs2"));
    EXPECT_FALSE(sameShareName("Logs2", "Logs"));
    EXPECT_FALSE(sameShareName("a", "\u00e4"));
}

TEST(ShareNames, ThatAreNoUtf8AreComparedByteByByte) {
    EXPECT_TRUE(sameShareName("\xff\xc3", "\xff\xc3"));
    EXPECT_FALSE(sameShareName("\xff", "\xfe"));
    EXPECT_FALSE(sameShareName("\xc3", "\xc3\xa4"));
    EXPECT_TRUE(sameShareName("x\xe2\x82Y", "X\xe2\x82y"));
}

}  // namespace
