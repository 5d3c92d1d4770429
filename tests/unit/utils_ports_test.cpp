// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Declaring the receivers' ports.
#include "ombrel/utils.h"
#include "tests/fake/platform_test.h"

namespace ombrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kFile = "/usr/local/etc/services.d/vesk_syslog.sc";
const std::string kRemoval = "VLIBServiceConfSectionRemove(\"vesk_syslog.sc[syslog_server]\", \"2 1 3 4 2 zero\")";

std::string sectionText(const std::string& name, const std::string& description, const std::string& protocol,
                        const std::string& port) {
    return "[" + name + "]\ndisplay_name=\"Ombrel\"\ndescription=\"" + description + "\"\nprotocol=\"" + protocol +
           "\"\nport=\"" + port + "\"\n";
}

int declareUdp(const std::string& name, const std::string& description) {
    return VESKOmbrelPortRegister(name, 5140, SYSLOG_TRANSMISSION_UDP, description);
}

class PortDeclaration : public PlatformTest {
protected:
    PortDeclaration() {
        platform.error.code = 0x1a;
        platform.error.file = "section.c";
        platform.error.line = 99;
    }
};

TEST_F(PortDeclaration, IsASectionOfThePackagesFile) {
    EXPECT_EQ(declareUdp("syslog_server", "Receiving"), 0);
    EXPECT_EQ(platform.read(kFile), sectionText("syslog_server", "Receiving", "udp", "5140"));
}

TEST_F(PortDeclaration, ComposesThePortThenTheSectionAndWritesIt) {
    EXPECT_EQ(declareUdp("syslog_server", "Receiving"), 0);
    EXPECT_THAT(platform.calls.lines(),
                ElementsAre("VESKServiceComposePortInfo(1, 0, 2, 5140)",
                            "VESKServiceComposeSectionInfo(\"syslog_server\", \"Ombrel\", \"Receiving\", 1)",
                            "VLIBServiceConfSectionSet(\"vesk_syslog.sc[syslog_server]\", \"2 1 1 4 2 zero\")"));
}

TEST_F(PortDeclaration, ReplacesAnEarlierOneAndKeepsTheOthers) {
    platform.addFile(kFile,
                     sectionText("syslog_server", "Old", "udp", "1") + sectionText("rule", "R", "tcp", "2"));
    EXPECT_EQ(declareUdp("syslog_server", "New"), 0);
    EXPECT_EQ(platform.read(kFile),
              sectionText("syslog_server", "New", "udp", "5140") + sectionText("rule", "R", "tcp", "2"));
}

struct ModeCase {
    std::string name;
    int mode;
    std::string protocol;
};

class DeclaredProtocol : public PlatformTestWith<ModeCase> {};

TEST_P(DeclaredProtocol, IsUdpForTheModeOneAlone) {
    const auto mode = static_cast<SYSLOG_TRANSMISSION_MODE>(GetParam().mode);
    EXPECT_EQ(VESKOmbrelPortRegister("s", 514, mode, "d"), 0);
    EXPECT_EQ(platform.read(kFile), sectionText("s", "d", GetParam().protocol, "514"));
}

INSTANTIATE_TEST_SUITE_P(Modes, DeclaredProtocol,
                         ::testing::Values(ModeCase{"Udp", 1, "udp"}, ModeCase{"Tcp", 0, "tcp"},
                                           ModeCase{"Two", 2, "tcp"}, ModeCase{"Negative", -1, "tcp"},
                                           ModeCase{"Large", 0x10001, "tcp"}),
                         CaseName());

struct CutCase {
    std::string name;
    std::size_t nameLength;
    std::size_t keptOfName;
    std::size_t textLength;
    std::size_t keptOfText;
};

class CutDeclaration : public PlatformTestWith<CutCase> {};

TEST_P(CutDeclaration, KeepsWhatTheFieldsHold) {
    const CutCase& c = GetParam();
    EXPECT_EQ(declareUdp(std::string(c.nameLength, 'n'), std::string(c.textLength, 't')), 0);
    EXPECT_EQ(platform.read(kFile),
              sectionText(std::string(c.keptOfName, 'n'), std::string(c.keptOfText, 't'), "udp", "5140"));
    const std::string place = "vesk_syslog.sc[" + std::string(c.keptOfName, 'n') + "]";
    EXPECT_EQ(platform.calls.lines().back(), "VLIBServiceConfSectionSet(\"" + place + "\", \"2 1 1 4 2 zero\")");
}

INSTANTIATE_TEST_SUITE_P(Lengths, CutDeclaration,
                         ::testing::Values(CutCase{"EmptyDescription", 5, 5, 0, 0},
                                           CutCase{"LongestThatFit", 255, 255, 127, 127},
                                           CutCase{"OneMore", 256, 255, 128, 127},
                                           CutCase{"FarTooLong", 5000, 255, 5000, 127}),
                         CaseName());

TEST_F(PortDeclaration, EndsATextAtANul) {
    EXPECT_EQ(declareUdp(std::string("a\0b", 3), std::string("c\0d", 3)), 0);
    EXPECT_EQ(platform.read(kFile), sectionText("a", "c", "udp", "5140"));
}

struct DeclareFailure {
    std::string name;
    std::string call;
    std::string message;
};

class DeclarationFails : public PlatformTestWith<DeclareFailure> {
protected:
    void expectFailure(bool handsOutObjects) {
        platform.error = {0x1a, "section.c", 99};
        platform.failuresHandOutObjects = handsOutObjects;
        platform.failCall(GetParam().call);
        EXPECT_EQ(declareUdp("syslog_server", "Receiving"), -1);
        EXPECT_THAT(platform.syslogLines, ElementsAre("err utils:" + GetParam().message));
        EXPECT_FALSE(platform.exists(kFile));
    }
};

TEST_P(DeclarationFails, WithTheErrorRecordAndLeavesTheFileAsItIs) {
    expectFailure(false);
}

TEST_P(DeclarationFails, ReleasesWhatTheFailedCallHandedOut) {
    expectFailure(true);
}

INSTANTIATE_TEST_SUITE_P(
    Steps, DeclarationFails,
    ::testing::Values(DeclareFailure{"Port", "VESKServiceComposePortInfo",
                                     "414 Fail to compose port info[0x001A section.c:99]"},
                      DeclareFailure{"Section", "VESKServiceComposeSectionInfo",
                                     "435 Fail to compose section info[0x001A section.c:99]"},
                      DeclareFailure{"Writing", "VLIBServiceConfSectionSet",
                                     "443 Fail to create port section (vesk_syslog.sc)[0x001A section.c:99]"}),
    CaseName());

class PortWithdrawal : public PortDeclaration {
protected:
    void addSections() {
        platform.addFile(kFile,
                         sectionText("rule", "R", "tcp", "2") + sectionText("syslog_server", "S", "udp", "1"));
    }
};

TEST_F(PortWithdrawal, RemovesTheSectionAndKeepsTheOthers) {
    addSections();
    EXPECT_EQ(VESKOmbrelPortUnregister("syslog_server"), 0);
    EXPECT_EQ(platform.read(kFile), sectionText("rule", "R", "tcp", "2"));
    EXPECT_THAT(platform.calls.lines(), ElementsAre("VLIBCSzHashAlloc(1024)", "VLIBCFileExist(\"" + kFile + "\")",
                                                    "VLIBCFileGetSection(\"" + kFile + "\", \"syslog_server\")",
                                                    kRemoval, "VLIBCSzHashFree()"));
}

TEST_F(PortWithdrawal, SucceedsInSilenceWithoutAFile) {
    EXPECT_EQ(VESKOmbrelPortUnregister("syslog_server"), 0);
    EXPECT_THAT(platform.calls.lines(),
                ElementsAre("VLIBCSzHashAlloc(1024)", "VLIBCFileExist(\"" + kFile + "\")", "VLIBCSzHashFree()"));
}

TEST_F(PortWithdrawal, SucceedsInSilenceWithoutTheSection) {
    addSections();
    EXPECT_EQ(VESKOmbrelPortUnregister("syslog_server_ietf"), 0);
    EXPECT_EQ(platform.calls.count("VLIBServiceConfSectionRemove"), 0);
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(PortWithdrawal, TakesAFileThatCannotBeToldForThere) {
    addSections();
    platform.existAnswers[kFile] = -1;
    EXPECT_EQ(VESKOmbrelPortUnregister("syslog_server"), 0);
    EXPECT_EQ(platform.calls.count("VLIBServiceConfSectionRemove"), 1);
}

TEST_F(PortWithdrawal, AlsoRemovesASectionThatCannotBeRead) {
    addSections();
    platform.failCall("VLIBCFileGetSection");
    EXPECT_EQ(VESKOmbrelPortUnregister("syslog_server"), 0);
    EXPECT_EQ(platform.read(kFile), sectionText("rule", "R", "tcp", "2"));
}

TEST_F(PortWithdrawal, FailsWithoutMemoryAndAsksNobody) {
    addSections();
    platform.failCall("VLIBCSzHashAlloc");
    EXPECT_EQ(VESKOmbrelPortUnregister("syslog_server"), -1);
    EXPECT_THAT(platform.syslogLines, ElementsAre("err utils:474 Failed to alloc memory"));
    EXPECT_EQ(platform.calls.count("VLIBCFileExist"), 0);
}

TEST_F(PortWithdrawal, AFailedRemovalIsReportedWithTheNumberOfKeysFound) {
    addSections();
    platform.failCall("VLIBServiceConfSectionRemove");
    EXPECT_EQ(VESKOmbrelPortUnregister("syslog_server"), -1);
    EXPECT_THAT(platform.syslogLines,
                ElementsAre("err utils:480 Fail to remove port section! (vesk_syslog.sc), retVal=4"
                            "[0x001A section.c:99]"));
}

TEST_F(PortWithdrawal, AFailedRemovalAfterAFailedReadIsReportedWithTheReadsResult) {
    addSections();
    platform.failCall("VLIBCFileGetSection");
    platform.failCall("VLIBServiceConfSectionRemove");
    EXPECT_EQ(VESKOmbrelPortUnregister("syslog_server"), -1);
    EXPECT_THAT(platform.syslogLines,
                ElementsAre("err utils:480 Fail to remove port section! (vesk_syslog.sc), retVal=-1"
                            "[0x001A section.c:99]"));
}

TEST_F(PortWithdrawal, CutsTheNameAsTheDeclarationDoes) {
    platform.addFile(kFile, sectionText(std::string(255, 'n'), "S", "udp", "1"));
    EXPECT_EQ(VESKOmbrelPortUnregister(std::string(255, 'n')), 0);
    EXPECT_EQ(platform.read(kFile), "");
}

}  // namespace

}  // namespace ombrel::test
