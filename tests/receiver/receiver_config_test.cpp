// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/receiver_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sysexits.h>

#include <string>

#include "linux/common/fd.h"
#include "receiver/launcher/control_socket.h"
#include "receiver/launcher/ports.h"
#include "receiver/launcher/receiver_launcher.h"
#include "tests/receiver/settings_file.h"
#include "tests/receiver/temp_folder.h"

namespace ombrel {
namespace {

using testing::HasSubstr;

ReceiverConfig plainConfig() {
    ReceiverConfig config;
    config.name = "bsd";
    config.listeners = {{Transport::kUdp, 514}, {Transport::kTcp, 514}};
    config.receiveBuffer = 212992;
    config.writerPort = 5615;
    config.token = "0123456789abcdef";
    config.queueFolder = "/run/bsd";
    return config;
}

std::string golden(const std::string& name) {
    return readText(std::string(OMBREL_TEST_DATA) + "/" + name + ".expected");
}

TEST(RenderReceiverConfig, OfUdpAndTcp) {
    EXPECT_EQ(renderReceiverConfig(plainConfig()), golden("bsd-plain"));
}

TEST(RenderReceiverConfig, OfTlsOnAMachineWithoutIpv6) {
    ReceiverConfig config = plainConfig();
    config.listeners = {{Transport::kTls, 6514}};
    config.keyFile = "/volume1/my certs/key.pem";
    config.certificateFile = "/volume1/my certs/cert.pem";
    config.ipv6 = false;
    EXPECT_EQ(renderReceiverConfig(config), golden("bsd-tls"));
}

TEST(IsConfigurablePath, RefusesWhatCouldEndItsText) {
    EXPECT_TRUE(isConfigurablePath("/etc/ssl/k\xc3\xa4y (1).pem"));
    for (const char* const path :
         {"", "key.pem", "/a'); source s { ", "/a\"b", "/a\nb", "/a\\b", "/a`b`", "/a\x7f"})
        EXPECT_FALSE(isConfigurablePath(path)) << path;
    EXPECT_FALSE(isConfigurablePath(std::string("/a\0b", 4)));
}

class BsdReceiverConfig : public testing::Test {
protected:
    std::optional<ReceiverConfig> read(const Settings& changed) {
        writeSettings(folder / "server.conf", changed);
        return bsdReceiverConfig(folder / "server.conf", error);
    }
    TempFolder folder;
    std::string error;
};

TEST_F(BsdReceiverConfig, ListensOnUdpAndTcpOfThePort) {
    const auto config = read({{"server_port", "514"}, {"server_trans", "tcp"}});
    ASSERT_TRUE(config) << error;
    ASSERT_EQ(config->listeners.size(), 2U);
    EXPECT_EQ(config->listeners[0].transport, Transport::kUdp);
    EXPECT_EQ(config->listeners[1].transport, Transport::kTcp);
    EXPECT_EQ(config->listeners[1].port, 514);
}

TEST_F(BsdReceiverConfig, ListensOnTlsAloneWhenItIsOn) {
    const auto config = read({{"server_ssl", "1"}});
    ASSERT_TRUE(config) << error;
    ASSERT_EQ(config->listeners.size(), 1U);
    EXPECT_EQ(config->listeners[0].transport, Transport::kTls);
    EXPECT_EQ(config->keyFile, "/etc/ssl/key.pem");
    EXPECT_EQ(config->certificateFile, "/etc/ssl/cert.pem");
}

TEST_F(BsdReceiverConfig, NamesThePortThatIsNone) {
    for (const char* const port : {"0", "65536", "-1", "100000"}) {
        EXPECT_FALSE(read({{"server_port", port}}));
        EXPECT_THAT(error, HasSubstr("server_port=\"" + std::string(port) + "\""));
    }
}

TEST_F(BsdReceiverConfig, NamesThePathThatCannotBeUsed) {
    EXPECT_FALSE(read({{"server_ssl", "1"}, {"server_ca_key", "/k'); destination d { program('x') }; #"}}));
    EXPECT_THAT(error, HasSubstr("server_ca_key="));
    EXPECT_FALSE(read({{"server_ssl", "1"}, {"server_ca_file", ""}}));
    EXPECT_THAT(error, HasSubstr("server_ca_file="));
    EXPECT_TRUE(read({{"server_ca_file", ""}})) << "not needed without TLS";
}

TEST_F(BsdReceiverConfig, SaysWhichFileCannotBeRead) {
    EXPECT_FALSE(bsdReceiverConfig(folder / "missing.conf", error));
    EXPECT_THAT(error, HasSubstr("missing.conf"));
}

TEST(TableHasPort, FindsSocketsThatTakeSomething) {
    const std::string head = "  sl  local_address rem_address   st tx_queue rx_queue\n";
    const std::string listening = head + "   0: 00000000:0202 00000000:0000 0A 00000000:00000000\n";
    EXPECT_TRUE(tableHasPort(listening, false, 514));
    EXPECT_FALSE(tableHasPort(listening, false, 515));
    EXPECT_FALSE(tableHasPort(listening, true, 514));
    const std::string six = head + "   0: 00000000000000000000000000000000:0202 000:0000 07 00000000:00000000\n";
    EXPECT_TRUE(tableHasPort(six, true, 514));
    const std::string connected = head + "   0: 0100007F:0202 0100007F:C001 01 00000000:00000000\n";
    EXPECT_FALSE(tableHasPort(connected, false, 514));
    EXPECT_FALSE(tableHasPort("junk\n:\n", false, 514));
}

TEST(TryToBind, FailsForAPortThatIsTaken) {
    const Fd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    socklen_t size = sizeof address;
    ASSERT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), size), 0);
    ASSERT_EQ(::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    const Listener listener{Transport::kUdp, ntohs(address.sin_port)};
    EXPECT_EQ(tryToBind(listener, false), EADDRINUSE);
    EXPECT_TRUE(isBound(listener));
    EXPECT_EQ(tryToBind({Transport::kTcp, 0}, false), 0);
}

TEST(CheckReceiver, FailsWhereNoneRuns) {
    const TempFolder folder;
    EXPECT_FALSE(answersOnControlSocket(folder / "control", std::chrono::milliseconds(100)));
    EXPECT_EQ(checkReceiver({folder / "server.conf", folder.path()}, plainConfig()), 1);
}

TEST(PrintReceiverConfig, DoesNotShowTheToken) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(printReceiverConfig(plainConfig()), EX_OK);
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_THAT(text, HasSubstr("Authorization: Bearer (token)"));
    EXPECT_THAT(text, testing::Not(HasSubstr("0123456789abcdef")));
}

}  // namespace
}  // namespace ombrel
