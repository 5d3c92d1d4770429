// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Declaring and withdrawing ports in the fixed folder.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "linux/common/declared_ports.h"
#include "linux/common/error_record.h"
#include "platform/veskserviceconf.h"
#include "tests/linux/port_declaration.h"
#include "tests/linux/private_world.h"

namespace ombrel {
namespace {

using test::composePort;
using test::composeSection;
using test::kRemove;
using test::kSet;
using test::PortInfo;
using test::portRequest;
using test::SectionInfo;

constexpr const char* kFile = "vesk_test.sc";
constexpr const char* kPath = "/usr/local/etc/services.d/vesk_test.sc";

SectionInfo compose(const char* section) {
    return composeSection(section, 1, 1, "a test");
}
VESK_SECTION_REQUEST request(const char* section, int action, const char* file = kFile) {
    return test::sectionRequest(section, action, file);
}
int set(const char* section, int protocol, int port, const char* text = "a test") {
    return test::declarePort(section, protocol, port, kFile, text);
}
int removeSection(const char* section) {
    return test::withdrawPort(section, kFile);
}

class PortSection : public test::PrivateRootTest {
protected:
    void SetUp() override {
        test::PrivateRootTest::SetUp();
        if (IsSkipped()) return;
        for (const auto& entry : std::filesystem::directory_iterator(kDeclarationFolder))
            std::filesystem::remove_all(entry.path());
    }
    static std::string text() {
        std::ifstream in(kPath, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    static std::vector<std::string> entries() {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(kDeclarationFolder))
            names.push_back(entry.path().filename());
        return names;
    }
};

TEST_F(PortSection, HoldsTheNamesAndThePort) {
    ASSERT_EQ(set("syslog_server", 2, 514, "BSD \"log\" receiving"), 0);
    EXPECT_EQ(text(),
              "[syslog_server]\ndisplay_name=\"Test\"\ndescription=\"BSD \"log\" receiving\"\nprotocol=\"udp\"\n"
              "port=\"514\"\n");
    struct stat info {};
    ASSERT_EQ(::stat(kPath, &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0644U);
    EXPECT_THAT(entries(), ::testing::ElementsAre("vesk_test.sc"));
}

TEST_F(PortSection, IsReplacedWhereItStands) {
    write(kPath,
          "# ours\n[first]\nport=\"1\"\n# kept\nprotocol=\"tcp\"\n\n[foreign]  # kept too\nport = 7 \njunk\n");
    ASSERT_EQ(set("first", 1, 65535), 0);
    EXPECT_EQ(text(),
              "# ours\n[first]\nport=\"65535\"\n# kept\nprotocol=\"tcp\"\ndisplay_name=\"Test\"\n"
              "description=\"a test\"\n\n[foreign]  # kept too\nport = 7 \njunk\n");
}

TEST_F(PortSection, IsRemovedAloneAndTheFileStays) {
    ASSERT_EQ(set("first", 1, 1), 0);
    const std::string first = text();
    ASSERT_EQ(set("second", 2, 2), 0);
    ASSERT_EQ(removeSection("second"), 0);
    EXPECT_EQ(text(), first);
    ASSERT_EQ(removeSection("first"), 0);
    EXPECT_EQ(text(), "");
    EXPECT_THAT(entries(), ::testing::ElementsAre("vesk_test.sc"));
    EXPECT_LT(removeSection("first"), 0);
    EXPECT_EQ(VLIBCErrGet(), kErrorNotFound);
}

TEST_F(PortSection, IsNotRemovedFromAFileThatIsNotThere) {
    EXPECT_LT(removeSection("first"), 0);
    EXPECT_EQ(entries().size(), 0U);
}

TEST_F(PortSection, MakesTheFolderThatIsMissing) {
    bind(makeFolder("etc"), "/usr/local/etc");  // the folder itself is a mount point and cannot be removed
    const mode_t before = ::umask(077);
    EXPECT_EQ(set("first", 1, 1), 0);
    ::umask(before);
    struct stat info {};
    ASSERT_EQ(::stat("/usr/local/etc/services.d", &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0755U);
}

TEST_F(PortSection, RefusesRequestsOfAnotherKind) {
    const SectionInfo info = compose("first");
    const auto refuses = [&](const auto& change) {
        VESK_SECTION_REQUEST bad = request("first", kSet);
        change(bad);
        const bool setRefused =
            VLIBServiceConfSectionSet(&bad, info.get()) == -1 && VLIBCErrGet() == kErrorInvalidArgument;
        if (bad.action == kSet) bad.action = kRemove;
        const bool removeRefused =
            VLIBServiceConfSectionRemove(&bad) == -1 && VLIBCErrGet() == kErrorInvalidArgument;
        return setRefused && removeRefused;
    };
    EXPECT_TRUE(refuses([](auto& bad) { bad.word0 = 1; }));
    EXPECT_TRUE(refuses([](auto& bad) { bad.word1 = 0; }));
    EXPECT_TRUE(refuses([](auto& bad) { bad.action = 2; }));
    EXPECT_TRUE(refuses([](auto& bad) { bad.word3 = 0; }));
    EXPECT_TRUE(refuses([](auto& bad) { bad.word4 = 0; }));
    EXPECT_TRUE(refuses([](auto& bad) { bad.section[0] = '\0'; }));
    EXPECT_TRUE(refuses([](auto& bad) { std::memset(bad.section, 'a', sizeof bad.section); }));
    EXPECT_TRUE(refuses([](auto& bad) { std::memset(bad.file, 'a', sizeof bad.file); }));
    const VESK_SECTION_REQUEST other = request("second", kSet);
    EXPECT_EQ(VLIBServiceConfSectionSet(&other, info.get()), -1);  // composed for another section
    EXPECT_EQ(VLIBServiceConfSectionSet(&other, nullptr), -1);
    EXPECT_EQ(VLIBServiceConfSectionSet(nullptr, info.get()), -1);
    EXPECT_EQ(VLIBServiceConfSectionRemove(nullptr), -1);
    EXPECT_EQ(entries().size(), 0U);
}

TEST_F(PortSection, RefusesFileNamesThatLeadElsewhere) {
    const SectionInfo info = compose("first");
    for (const char* name : {"", ".sc", "..sc", ".hidden.sc", "../x.sc", "a/b.sc", "/etc/x.sc", "x.conf", "x.sc~",
                             "x.SC", "a..sc", "a b.sc", "a\n.sc", "sc"}) {
        const VESK_SECTION_REQUEST bad = request("first", kSet, name);
        EXPECT_EQ(VLIBServiceConfSectionSet(&bad, info.get()), -1) << name;
        EXPECT_EQ(VLIBCErrGet(), kErrorInvalidArgument) << name;
    }
    EXPECT_EQ(entries().size(), 0U);
}

TEST_F(PortSection, RefusesTextsThatAFileCannotHold) {
    ASSERT_EQ(set("first", 1, 1), 0);
    const std::string before = text();
    EXPECT_EQ(set("first", 1, 2, "two\nlines"), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorForbiddenText);
    EXPECT_EQ(set("sec]ond", 1, 2), -1);
    EXPECT_EQ(VLIBCErrGet(), kErrorForbiddenText);
    EXPECT_EQ(set("sec\nond", 1, 2), -1);
    EXPECT_EQ(text(), before);
}

TEST_F(PortSection, SurvivesThatTwoWriteAtOnce) {
    constexpr int kEach = 30;
    const auto writer = [](const std::string& prefix) {
        for (int i = 0; i < kEach; ++i) {
            EXPECT_EQ(set((prefix + std::to_string(i)).c_str(), 1, 1 + i), 0);
            EXPECT_EQ(set("shared", 2, 1 + i), 0);
        }
    };
    std::thread other(writer, "b");
    writer("a");
    other.join();
    std::size_t sections = 0;
    for (std::size_t at = text().find('['); at != std::string::npos; at = text().find('[', at + 1))
        ++sections;
    EXPECT_EQ(sections, 2U * kEach + 1);
}

TEST(PortInfo, IsComposedOfAPortAndAProtocolAlone) {
    EXPECT_TRUE(composePort(portRequest(1, 1)));
    EXPECT_TRUE(composePort(portRequest(2, 65535)));
    for (const auto& [protocol, port] : {std::pair{0, 1}, {3, 1}, {1, 0}, {1, -1}, {2, 65536}}) {
        VLIBCErrSetEx(0, "", 0);
        EXPECT_FALSE(composePort(portRequest(protocol, port))) << protocol << " " << port;
        EXPECT_EQ(VLIBCErrGet(), kErrorInvalidArgument);
    }
    VESK_PORT_REQUEST bad = portRequest(1, 1);
    bad.kind = 2;
    EXPECT_FALSE(composePort(bad));
    bad = portRequest(1, 1);
    bad.zero = 1;
    EXPECT_FALSE(composePort(bad));
    bad = portRequest(1, 1);
    bad.reserved2 = &bad;
    EXPECT_FALSE(composePort(bad));
    EXPECT_EQ(VESKServiceComposePortInfo(nullptr, nullptr), -1);
}

TEST(SectionInfo, RefusesTextsWithoutAnEnd) {
    const PortInfo port = composePort(portRequest(1, 1));
    const auto refuses = [&](const auto& change) {
        VESK_SECTION_DESCRIPTION bad = test::sectionDescription("first", "a test", port.get());
        change(bad);
        VESK_SECTION_INFO* info = nullptr;
        return VESKServiceComposeSectionInfo(&bad, &info) == -1 && info == nullptr &&
               VLIBCErrGet() == kErrorInvalidArgument;
    };
    EXPECT_TRUE(refuses([](auto& bad) { std::memset(bad.name, 'a', sizeof bad.name); }));
    EXPECT_TRUE(refuses([](auto& bad) { std::memset(bad.display_name, 'a', sizeof bad.display_name); }));
    EXPECT_TRUE(refuses([](auto& bad) { std::memset(bad.description, 'a', sizeof bad.description); }));
    EXPECT_TRUE(refuses([](auto& bad) { bad.kind = 0; }));
    EXPECT_TRUE(refuses([](auto& bad) { bad.reserved = &bad; }));
    EXPECT_TRUE(refuses([](auto& bad) { bad.port_info = nullptr; }));
    EXPECT_EQ(VESKServiceComposeSectionInfo(nullptr, nullptr), -1);
}

}  // namespace
}  // namespace ombrel
