// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the notices take from the settings file, whole or not.
#include "tools/ombrel-notify/notify_settings.h"

#include <gmock/gmock.h>

#include <filesystem>

#include "tests/linux/child_process.h"

namespace ombrel {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* kBsd = "server_port=\"5514\"\nserver_trans=\"udp\"\nserver_ssl=\"0\"\n";
constexpr const char* kIetf = "server_ietf_port=\"6514\"\nserver_ietf_trans=\"tcp\"\nserver_ietf_ssl=\"0\"\n";
constexpr const char* kDestination = "arch_dest=\"/srv/logs\"\n";

struct SettingsCase {
    const char* name;
    std::string text;
    std::set<std::uint16_t> ports;
    std::string destination;
    long long freeMib;
    const char* problem;  ///< a part of it; empty: none
};
void PrintTo(const SettingsCase& one, std::ostream* out) {
    *out << one.name;
}

class NotifySettingsFile : public ::testing::TestWithParam<SettingsCase> {
protected:
    test::TemporaryFolder folder;
    std::string path = folder.at("server.conf");
};

TEST_P(NotifySettingsFile, IsTakenAsFarAsItMakesSense) {
    test::writeBytes(path, GetParam().text);
    const NotifySettings settings = readNotifySettings(path);
    EXPECT_EQ(settings.udpPorts, GetParam().ports);
    EXPECT_EQ(settings.destination, GetParam().destination);
    EXPECT_EQ(settings.freeMib, GetParam().freeMib);
    if (*GetParam().problem == '\0') {
        EXPECT_THAT(settings.problem, IsEmpty());
    } else {
        EXPECT_THAT(settings.problem, HasSubstr(GetParam().problem));
    }
}

const std::string kWhole = std::string(kBsd) + kIetf + kDestination;

INSTANTIATE_TEST_SUITE_P(
    Files, NotifySettingsFile,
    ::testing::Values(
        SettingsCase{"Whole", kWhole, {5514}, "/srv/logs", 1024, ""},
        SettingsCase{"Bound", kWhole + "notify_free_mib=\"10\"\n", {5514}, "/srv/logs", 10, ""},
        SettingsCase{"NoBound", kWhole + "notify_free_mib=\"0\"\n", {5514}, "/srv/logs", 0, ""},
        SettingsCase{
            "NegativeBound", kWhole + "notify_free_mib=\"-1\"\n", {5514}, "/srv/logs", 1024, "notify_free_mib"},
        SettingsCase{
            "BoundWithUnit", kWhole + "notify_free_mib=\"10G\"\n", {5514}, "/srv/logs", 1024, "notify_free_mib"},
        SettingsCase{"HugeBound",
                     kWhole + "notify_free_mib=\"99999999999999999999\"\n",
                     {5514},
                     "/srv/logs",
                     1024,
                     "makes no sense"},
        SettingsCase{"WithoutIetfKeys", std::string(kBsd) + kDestination, {514, 5514}, "/srv/logs", 1024, ""},
        SettingsCase{
            "Tls",
            std::string("server_port=\"5514\"\nserver_trans=\"udp\"\nserver_ssl=\"1\"\n") + kIetf + kDestination,
            {},
            "/srv/logs",
            1024,
            ""},
        SettingsCase{"Tcp",
                     std::string("server_port=\"5514\"\nserver_trans=\"tcp\"\n") + kIetf + kDestination,
                     {},
                     "/srv/logs",
                     1024,
                     ""},
        SettingsCase{"SamePort",
                     std::string(kBsd) + "server_ietf_port=\"5514\"\nserver_ietf_trans=\"udp\"\n" + kDestination,
                     {5514},
                     "/srv/logs",
                     1024,
                     ""},
        SettingsCase{"PortMissing",
                     std::string("server_trans=\"udp\"\n") + kIetf + kDestination,
                     {},
                     "/srv/logs",
                     1024,
                     "server_port is missing"},
        SettingsCase{"PortTooLarge",
                     std::string("server_trans=\"udp\"\nserver_port=\"65536\"\n") + kIetf + kDestination,
                     {},
                     "/srv/logs",
                     1024,
                     "server_port=\"65536\""},
        SettingsCase{"NoDestination", std::string(kBsd) + kIetf, {5514}, "", 1024, "arch_dest is missing"},
        SettingsCase{"RelativeDestination",
                     std::string(kBsd) + kIetf + "arch_dest=\"logs\"\n",
                     {5514},
                     "",
                     1024,
                     "arch_dest=\"logs\""},
        SettingsCase{"Junk", "\x01\x02\xff=\"\n====\n", {514}, "", 1024, "arch_dest is missing"}),
    [](const auto& one) { return std::string(one.param.name); });

TEST_F(NotifySettingsFile, ThatIsMissingIsAProblemOfTheFile) {
    const NotifySettings settings = readNotifySettings(path);
    EXPECT_EQ(settings.problem, path + ": No such file or directory");
    EXPECT_THAT(settings.udpPorts, IsEmpty());
    std::filesystem::create_directory(path);
    EXPECT_THAT(readNotifySettings(path).problem, HasSubstr(path + ": "));
}

}  // namespace
}  // namespace ombrel
