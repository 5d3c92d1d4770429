// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/receiver_settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "receiver/launcher/reserved_ports.h"
#include "tests/receiver/settings_file.h"
#include "tests/receiver/temp_folder.h"

namespace ombrel {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class NetworkReceiver : public testing::Test {
protected:
    std::optional<ReceiverConfig> read(const std::string& name, const Settings& changed) {
        writeSettings(folder / "server.conf", changed);
        return receiverConfig(name, {folder / "server.conf", folder / "custrule.conf"}, error);
    }
    TempFolder folder;
    std::string error;
};

struct ListenCase {
    const char* title;
    const char* name;
    Settings settings;
    SourceKind kind;
    int port;
};

void PrintTo(const ListenCase& one, std::ostream* out) {
    *out << one.title;
}

class ListensOn : public NetworkReceiver, public testing::WithParamInterface<ListenCase> {};

TEST_P(ListensOn, OneTransport) {
    const auto config = read(GetParam().name, GetParam().settings);
    ASSERT_TRUE(config) << error;
    EXPECT_EQ(config->name, GetParam().name);
    ASSERT_EQ(config->sources.size(), 1U);
    EXPECT_EQ(config->sources[0].kind, GetParam().kind);
    EXPECT_EQ(config->sources[0].port, GetParam().port);
    EXPECT_EQ(config->sources[0].counted, config->name == "ietf" && GetParam().kind != SourceKind::kUdp);
}

INSTANTIATE_TEST_SUITE_P(
    All, ListensOn,
    testing::Values(
        ListenCase{"BsdUdp", "bsd", {{"server_port", "514"}, {"server_trans", "udp"}}, SourceKind::kUdp, 514},
        ListenCase{"BsdTcp", "bsd", {{"server_port", "65535"}, {"server_trans", "tcp"}}, SourceKind::kTcp, 65535},
        ListenCase{
            "BsdOfAnotherWord", "bsd", {{"server_port", "1"}, {"server_trans", "UDP"}}, SourceKind::kTcp, 1},
        ListenCase{"BsdTls", "bsd", {{"server_trans", "tcp"}, {"server_ssl", "1"}}, SourceKind::kTls, 5514},
        ListenCase{"IetfOfOldSettings", "ietf", {}, SourceKind::kUdp, 514},
        ListenCase{
            "IetfTcp", "ietf", {{"server_ietf_port", "601"}, {"server_ietf_trans", "tcp"}}, SourceKind::kTcp, 601},
        ListenCase{"IetfTls",
                   "ietf",
                   {{"server_ietf_port", "6514"}, {"server_ietf_trans", "tcp"}, {"server_ietf_ssl", "1"}},
                   SourceKind::kTls,
                   6514},
        ListenCase{"IetfWhateverBsdDoes",
                   "ietf",
                   {{"server_ietf_trans", "tcp"}, {"server_ssl", "1"}, {"server_port", "0"}},
                   SourceKind::kTcp,
                   514}),
    [](const auto& one) { return one.param.title; });

TEST_F(NetworkReceiver, HasTheFilesForTls) {
    const auto config = read("ietf", {{"server_ietf_trans", "tcp"}, {"server_ietf_ssl", "1"}});
    ASSERT_TRUE(config) << error;
    EXPECT_EQ(config->keyFile, "/etc/ssl/key.pem");
    EXPECT_EQ(config->certificateFile, "/etc/ssl/cert.pem");
    EXPECT_EQ(config->sources[0].portKey, "server_ietf_port");
}

TEST_F(NetworkReceiver, NamesThePortThatIsNone) {
    for (const char* const port : {"0", "65536", "-1", "100000"}) {
        EXPECT_FALSE(read("bsd", {{"server_port", port}}));
        EXPECT_THAT(error, StartsWith("server_port=\"" + std::string(port) + "\""));
        EXPECT_FALSE(read("ietf", {{"server_ietf_port", port}}));
        EXPECT_THAT(error, StartsWith("server_ietf_port=\"" + std::string(port) + "\""));
    }
    EXPECT_THAT(error, HasSubstr(folder / "server.conf"));
}

TEST_F(NetworkReceiver, RefusesTlsOverDatagramsWithBothKeys) {
    EXPECT_FALSE(read("bsd", {{"server_ssl", "1"}, {"server_trans", "udp"}}));
    EXPECT_THAT(error, StartsWith(R"(server_ssl="1" needs server_trans="tcp")"));
    EXPECT_FALSE(read("ietf", {{"server_ietf_ssl", "1"}, {"server_ietf_trans", "udp"}}));
    EXPECT_THAT(error, StartsWith(R"(server_ietf_ssl="1" needs server_ietf_trans="tcp")"));
}

TEST_F(NetworkReceiver, NamesThePathThatCannotBeUsed) {
    const Settings tls = {{"server_ssl", "1"}, {"server_trans", "tcp"}};
    Settings wrong = tls;
    wrong["server_ca_key"] = "/k\x1b[0m";
    EXPECT_FALSE(read("bsd", wrong));
    EXPECT_THAT(error, StartsWith("server_ca_key="));
    wrong = tls;
    wrong["server_ca_file"] = "";
    EXPECT_FALSE(read("bsd", wrong));
    EXPECT_THAT(error, StartsWith("server_ca_file="));
    EXPECT_TRUE(read("bsd", {{"server_ca_file", ""}})) << "not needed without TLS";
}

TEST_F(NetworkReceiver, SaysWhichFileCannotBeRead) {
    for (const char* const name : {"bsd", "ietf"}) {
        EXPECT_FALSE(receiverConfig(name, {folder / "missing.conf", {}}, error));
        EXPECT_THAT(error, HasSubstr("missing.conf"));
    }
}

class RulesReceiver : public NetworkReceiver {
protected:
    void writeRules(const std::string& text) { writeText(folder / "custrule.conf", text); }
    [[nodiscard]] static std::string rule(const std::string& name, const std::string& port,
                                          const std::string& ssl) {
        return "[" + name + "]\nformat=\"BSD\"\nprotocol=\"tcp\"\nport=\"" + port + "\"\nssl=\"" + ssl +
               "\"\nenable=\"yes\"\n";
    }
};

TEST_F(RulesReceiver, TakesTheCertificateOfTheSettings) {
    writeRules(rule("plain", "1514", "no") + rule("secret", "1515", "yes"));
    const auto config = read("custrule", {{"server_ca_key", "/tls/key.pem"}, {"server_ca_file", "/tls/cert.pem"}});
    ASSERT_TRUE(config) << error;
    EXPECT_EQ(config->name, "custrule");
    EXPECT_FALSE(config->needsAll);
    EXPECT_FALSE(config->sharesUdpPorts);
    ASSERT_EQ(config->sources.size(), 2U);
    EXPECT_EQ(config->sources[1].kind, SourceKind::kTls);
    EXPECT_EQ(config->keyFile, "/tls/key.pem");
    EXPECT_EQ(config->certificateFile, "/tls/cert.pem");
    EXPECT_THAT(config->remarks, testing::IsEmpty());
}

TEST_F(RulesReceiver, GoesWithoutTlsWhereTheSettingsHaveNoUsablePath) {
    writeRules(rule("plain", "1514", "no") + rule("secret", "1515", "yes"));
    const auto config = read("custrule", {{"server_ca_key", "key.pem"}, {"server_ca_file", "/tls/cert.pem"}});
    ASSERT_TRUE(config) << error;
    ASSERT_EQ(config->sources.size(), 1U);
    EXPECT_EQ(config->sources[0].rule, "plain");
    EXPECT_THAT(
        config->remarks,
        testing::ElementsAre(StartsWith("rule \"secret\" is left out: server_ca_key=\"key.pem\" must be")));
}

TEST_F(RulesReceiver, NeedsNoSettingsWithoutTls) {
    writeRules(rule("plain", "1514", "no"));
    auto config = receiverConfig("custrule", {folder / "missing.conf", folder / "custrule.conf"}, error);
    ASSERT_TRUE(config) << error;
    EXPECT_EQ(config->sources.size(), 1U);
    writeRules(rule("plain", "1514", "no") + rule("secret", "1515", "yes"));
    config = receiverConfig("custrule", {folder / "missing.conf", folder / "custrule.conf"}, error);
    ASSERT_TRUE(config) << error;
    EXPECT_EQ(config->sources.size(), 1U);
    EXPECT_THAT(config->remarks, testing::ElementsAre(HasSubstr("cannot read the receiver settings")));
}

TEST_F(RulesReceiver, ListensOnNothingWithoutAFile) {
    const auto config = read("custrule", {});
    ASSERT_TRUE(config) << error;
    EXPECT_THAT(config->sources, testing::IsEmpty());
}

TEST_F(RulesReceiver, SaysThatTheFileCannotBeRead) {
    std::filesystem::create_directory(folder / "custrule.conf");
    EXPECT_FALSE(read("custrule", {}));
    EXPECT_EQ(error, "cannot read the receiving rules in " + (folder / "custrule.conf") + ": Is a directory");
}

class Reserved : public NetworkReceiver {
protected:
    std::vector<std::string> reserved(const std::string& enabledJobs) {
        writeText(folder / "enable_services", enabledJobs);
        writeSettings(folder / "server.conf", {{"server_port", "514"},
                                               {"server_trans", "udp"},
                                               {"server_ietf_port", "6514"},
                                               {"server_ietf_trans", "tcp"}});
        std::vector<std::string> lines;
        for (const ReservedPort& one : reservedPorts({folder / "server.conf", {}, folder / "enable_services"}))
            lines.push_back(one.receiver + (one.port.first == Transport::kUdp ? " udp/" : " tcp/") +
                            std::to_string(one.port.second));
        return lines;
    }
};

TEST_F(Reserved, AreThePortsOfReceiversThatAreSwitchedOn) {
    EXPECT_THAT(reserved("pkg-Ombrel-bsd=\"yes\"\npkg-Ombrel-ietf=\"yes\"\n"),
                testing::ElementsAre("bsd udp/514", "ietf tcp/6514"));
    EXPECT_THAT(reserved("pkg-Ombrel-bsd=\"no\"\npkg-Ombrel-ietf=\"yes\"\n"),
                testing::ElementsAre("ietf tcp/6514"));
    EXPECT_THAT(reserved("pkg-Ombrel-localarchive=\"yes\"\nbsd=\"yes\"\n"), testing::IsEmpty());
    EXPECT_THAT(reserved(""), testing::IsEmpty());
}

TEST_F(Reserved, AreNoneWhereTheFilesAreMissing) {
    writeText(folder / "enable_services", "pkg-Ombrel-bsd=\"yes\"\n");
    EXPECT_TRUE(reservedPorts({folder / "missing", {}, folder / "enable_services"}).empty());
    EXPECT_TRUE(reservedPorts({folder / "missing", {}, folder / "none"}).empty());
}

class LocalReceiver : public testing::Test {
protected:
    TempFolder folder;
    std::string trouble;
};

TEST_F(LocalReceiver, ReadsTheJournalWhereThereIsOne) {
    const auto config = localReceiverConfig({.journal = true}, trouble);
    EXPECT_EQ(config.name, "local");
    ASSERT_EQ(config.sources.size(), 1U);
    EXPECT_EQ(config.sources[0].kind, SourceKind::kJournal);
    EXPECT_EQ(trouble, "");
}

TEST_F(LocalReceiver, ReadsSocketAndKernelOtherwise) {
    writeText(folder / "kmsg", "");
    const auto config = localReceiverConfig({false, folder / "log", folder / "kmsg"}, trouble);
    ASSERT_EQ(config.sources.size(), 2U);
    EXPECT_EQ(config.sources[0].kind, SourceKind::kLogSocket);
    EXPECT_EQ(config.sources[0].path, folder / "log");
    EXPECT_EQ(config.sources[1].kind, SourceKind::kKernelRing);
    EXPECT_EQ(trouble, "");
}

TEST_F(LocalReceiver, GoesWithoutTheKernelThatItMayNotRead) {
    const auto config = localReceiverConfig({false, folder / "log", folder / "kmsg"}, trouble);
    ASSERT_EQ(config.sources.size(), 1U);
    EXPECT_EQ(config.sources[0].kind, SourceKind::kLogSocket);
    EXPECT_THAT(trouble, HasSubstr(folder / "kmsg: No such file"));
}

TEST(IsReceiverName, KnowsFour) {
    for (const char* const name : {"bsd", "ietf", "local", "custrule"})
        EXPECT_TRUE(isReceiverName(name));
    for (const char* const name : {"", "custrules", "BSD", "../bsd"})
        EXPECT_FALSE(isReceiverName(name));
}

}  // namespace
}  // namespace ombrel
