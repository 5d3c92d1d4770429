// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Port declarations and the conflict test, on every platform. The declaration folder has its fixed place, so each
// test has a file and ports of its own.
#include <gtest/gtest.h>

#include <memory>

#include "platform/veskcore.h"
#include "tests/contract/contract_fixture.h"
#include "tests/linux/port_declaration.h"

namespace ombrel::contract {
namespace {

using test::declarePort;
using test::kTcp;
using test::kUdp;
using test::withdrawPort;

class PortDeclarations : public ContractTest {
protected:
    static std::string pathOf(const std::string& file) { return "/usr/local/etc/services.d/" + file; }
    /// The value of a section; "<none>" when there is no such section, file or key.
    static std::string valueOf(const std::string& file, const char* section, const char* key) {
        char value[256];
        const std::string path = pathOf(file);
        const int result = VLIBCFileGetSectionValue(path.c_str(), section, key, value, sizeof value);
        return result == 0 ? value : "<none>";
    }
    static int keysOf(const std::string& file, const char* section) {
        VLIBSZHASH* keys = VLIBCSzHashAlloc(16);
        const int count = VLIBCFileGetSection(pathOf(file).c_str(), section, &keys);
        VLIBCSzHashFree(keys);
        return count;
    }
    /// Whether a service finds the port taken; the object that tells by whom is released.
    static bool conflicts(const char* service, const char* port, const char* protocol) {
        VESK_SERVICE_PORTS* ports = nullptr;
        const int result = VLIBIsPortConflict(service, port, protocol, 28, &ports);
        EXPECT_GE(result, 0) << service << " " << port << " " << protocol;
        if (ports != nullptr) VESKServiceConfPortsFree(ports);
        return result == 1;
    }
};

TEST_F(PortDeclarations, AreSectionsOfTheirFile) {
    ASSERT_GE(declarePort("first", kUdp, 20001, "sections.sc", "the first"), 0);
    ASSERT_GE(declarePort("second", kTcp, 20002, "sections.sc", "the second"), 0);
    EXPECT_EQ(keysOf("sections.sc", "first"), 4);
    EXPECT_EQ(valueOf("sections.sc", "first", "display_name"), "Test");
    EXPECT_EQ(valueOf("sections.sc", "first", "description"), "the first");
    EXPECT_EQ(valueOf("sections.sc", "first", "protocol"), "udp");
    EXPECT_EQ(valueOf("sections.sc", "first", "port"), "20001");
    EXPECT_EQ(valueOf("sections.sc", "second", "protocol"), "tcp");
}

TEST_F(PortDeclarations, ReplaceTheSectionOfTheirName) {
    ASSERT_GE(declarePort("first", kUdp, 20011, "replaced.sc", "before"), 0);
    ASSERT_GE(declarePort("other", kUdp, 20012, "replaced.sc"), 0);
    ASSERT_GE(declarePort("first", kTcp, 20013, "replaced.sc", "after"), 0);
    EXPECT_EQ(valueOf("replaced.sc", "first", "port"), "20013");
    EXPECT_EQ(valueOf("replaced.sc", "first", "protocol"), "tcp");
    EXPECT_EQ(valueOf("replaced.sc", "first", "description"), "after");
    EXPECT_EQ(valueOf("replaced.sc", "other", "port"), "20012");
}

TEST_F(PortDeclarations, AreWithdrawnAlone) {
    ASSERT_GE(declarePort("first", kUdp, 20021, "withdrawn.sc"), 0);
    ASSERT_GE(declarePort("other", kUdp, 20022, "withdrawn.sc"), 0);
    EXPECT_GE(withdrawPort("first", "withdrawn.sc"), 0);
    EXPECT_EQ(keysOf("withdrawn.sc", "first"), 0);
    EXPECT_EQ(valueOf("withdrawn.sc", "other", "port"), "20022");
    EXPECT_GE(withdrawPort("other", "withdrawn.sc"), 0);
    EXPECT_EQ(keysOf("withdrawn.sc", "other"), 0);
    EXPECT_NE(VLIBCFileExist(pathOf("withdrawn.sc").c_str()), 0);
}

TEST_F(PortDeclarations, AreNotWithdrawnTwice) {
    EXPECT_LT(withdrawPort("first", "never.sc"), 0);
    ASSERT_GE(declarePort("first", kUdp, 20031, "twice.sc"), 0);
    EXPECT_LT(withdrawPort("other", "twice.sc"), 0);
    EXPECT_GE(withdrawPort("first", "twice.sc"), 0);
    EXPECT_LT(withdrawPort("first", "twice.sc"), 0);
}

TEST_F(PortDeclarations, AreOfOnePortAndOneProtocol) {
    if (world->isFake())
        GTEST_SKIP() << "the fake platform takes any number, to show what the library makes of it";
    for (const auto& [protocol, port] : {std::pair{kTcp, 0}, {kTcp, -1}, {kUdp, 65536}, {0, 1}, {3, 1}}) {
        EXPECT_EQ(test::composePort(test::portRequest(protocol, port)), nullptr) << protocol << " " << port;
    }
    EXPECT_NE(test::composePort(test::portRequest(kTcp, 1)), nullptr);
    EXPECT_NE(test::composePort(test::portRequest(kUdp, 65535)), nullptr);
}

TEST_F(PortDeclarations, AreRefusedWhereAFileCannotHoldThem) {
    ASSERT_GE(declarePort("first", kUdp, 20041, "refused.sc", "kept"), 0);
    EXPECT_LT(declarePort("first", kUdp, 20042, "refused.sc", "two\nlines"), 0);
    EXPECT_LT(declarePort("sec]ond", kUdp, 20042, "refused.sc"), 0);
    EXPECT_EQ(valueOf("refused.sc", "first", "port"), "20041");
    EXPECT_EQ(valueOf("refused.sc", "first", "description"), "kept");
}

TEST_F(PortDeclarations, ConflictWithOtherSectionsAlone) {
    EXPECT_FALSE(conflicts("other", "20051", "udp"));
    ASSERT_GE(declarePort("first", kUdp, 20051, "conflict.sc"), 0);
    EXPECT_TRUE(conflicts("other", "20051", "udp"));
    EXPECT_FALSE(conflicts("other", "20051", "tcp"));
    EXPECT_FALSE(conflicts("other", "20052", "udp"));
    EXPECT_FALSE(conflicts("first", "20051", "udp"));
    ASSERT_GE(withdrawPort("first", "conflict.sc"), 0);
    EXPECT_FALSE(conflicts("other", "20051", "udp"));
}

TEST_F(PortDeclarations, ConflictAcrossFiles) {
    ASSERT_GE(declarePort("first", kTcp, 20061, "one-file.sc"), 0);
    ASSERT_GE(declarePort("second", kTcp, 20061, "other-file.sc"), 0);
    EXPECT_TRUE(conflicts("first", "20061", "tcp"));
    EXPECT_TRUE(conflicts("second", "20061", "tcp"));
}

TEST_F(PortDeclarations, AreTestedForPortsAndProtocolsAlone) {
    VESK_SERVICE_PORTS* ports = nullptr;
    for (const char* port : {"", "0", "65536", "-1", "514x", "http"}) {
        EXPECT_LT(VLIBIsPortConflict("first", port, "tcp", 28, &ports), 0) << port;
    }
    for (const char* protocol : {"", "TCP", "tcp,udp", "6"}) {
        EXPECT_LT(VLIBIsPortConflict("first", "20071", protocol, 28, &ports), 0) << protocol;
    }
    EXPECT_EQ(ports, nullptr);
}

}  // namespace
}  // namespace ombrel::contract
