// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/receiver_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

#include "receiver/launcher/child.h"
#include "receiver/launcher/receiver_files.h"
#include "receiver/launcher/receiver_launcher.h"
#include "tests/receiver/temp_folder.h"

namespace ombrel {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* kSyslogNgProgram = "/usr/sbin/syslog-ng";

ReceiverConfig networkConfig(const std::string& name, SourceKind kind) {
    ReceiverConfig config;
    config.name = name;
    config.sources = {{kind, 514}};
    config.sources[0].counted = name == "ietf" && kind != SourceKind::kUdp;
    config.receiveBuffer = 212992;
    config.writerPort = 5615;
    config.token = "0123456789abcdef";
    config.queueFolder = "/run/" + name;
    if (kind == SourceKind::kTls) {
        config.sources[0].port = 6514;
        config.keyFile = "/volume1/my certs/key.pem";
        config.certificateFile = "/volume1/my certs/cert.pem";
        config.ipv6 = false;
    }
    return config;
}

ReceiverConfig localConfig(std::vector<Source> sources) {
    ReceiverConfig config = networkConfig("local", SourceKind::kUdp);
    config.sources = std::move(sources);
    return config;
}

Source ruleSource(SourceKind kind, std::uint16_t port, bool counted, bool raw) {
    Source source{kind, port};
    source.counted = counted;
    source.raw = raw;
    return source;
}

// Rules of each format, two of them with the same one.
ReceiverConfig rulesConfig() {
    ReceiverConfig config = networkConfig("custrule", SourceKind::kTls);
    config.needsAll = false;
    config.sharesUdpPorts = false;
    config.sources = {
        ruleSource(SourceKind::kUdp, 1514, false, false), ruleSource(SourceKind::kTcp, 1514, false, false),
        ruleSource(SourceKind::kTls, 6514, true, false),  ruleSource(SourceKind::kUdp, 1515, false, true),
        ruleSource(SourceKind::kTcp, 1516, false, true),  ruleSource(SourceKind::kUdp, 1517, false, false),
        ruleSource(SourceKind::kTcp, 1518, true, false)};
    return config;
}

ReceiverConfig noRules() {
    ReceiverConfig config = rulesConfig();
    config.sources.clear();
    config.keyFile.clear();
    return config;
}

struct Golden {
    const char* name;
    ReceiverConfig config;
};

void PrintTo(const Golden& golden, std::ostream* out) {
    *out << golden.name;
}

class RenderReceiverConfig : public testing::TestWithParam<Golden> {};

TEST_P(RenderReceiverConfig, GivesTheKnownText) {
    EXPECT_EQ(renderReceiverConfig(GetParam().config),
              readText(std::string(OMBREL_TEST_DATA) + "/" + GetParam().name + ".expected"));
}

// What syslog-ng itself says of it: its options change from version to version.
TEST_P(RenderReceiverConfig, IsAcceptedBySyslogNg) {
    if (::access(kSyslogNgProgram, X_OK) != 0) GTEST_SKIP() << kSyslogNgProgram << " is not installed";
    const TempFolder folder;
    ReceiverConfig config = GetParam().config;
    config.queueFolder = folder.path();
    if (!config.keyFile.empty()) {  // which it opens
        config.keyFile = folder / "the \"key\"'); it's `HOME` $HOST \\n \\.pem";
        config.certificateFile = folder / "c\xc3\xa9rt`x\\\"";
        auto openssl = Child::start({"/usr/bin/openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                                     "ec_paramgen_curve:prime256v1", "-nodes", "-subj", "/CN=x", "-keyout",
                                     config.keyFile, "-out", config.certificateFile});
        ASSERT_TRUE(openssl && openssl->wait(std::chrono::steady_clock::now() + std::chrono::seconds(20)));
    }
    const ReceiverFiles files(folder.path(), config.name);
    ASSERT_TRUE(std::filesystem::create_directory(files.folder));
    EXPECT_EQ(writeCheckedConfiguration(kSyslogNgProgram, files, renderReceiverConfig(config)), EX_OK);
    EXPECT_EQ(writeCheckedConfiguration(kSyslogNgProgram, files, renderHandOverConfig(config)), EX_OK);
}

INSTANTIATE_TEST_SUITE_P(
    All, RenderReceiverConfig,
    testing::Values(Golden{"bsd-udp", networkConfig("bsd", SourceKind::kUdp)},
                    Golden{"bsd-tcp", networkConfig("bsd", SourceKind::kTcp)},
                    Golden{"bsd-tls", networkConfig("bsd", SourceKind::kTls)},
                    Golden{"ietf-udp", networkConfig("ietf", SourceKind::kUdp)},
                    Golden{"ietf-tcp", networkConfig("ietf", SourceKind::kTcp)},
                    Golden{"ietf-tls", networkConfig("ietf", SourceKind::kTls)},
                    Golden{"custrule-mixed", rulesConfig()}, Golden{"custrule-none", noRules()},
                    Golden{"local-journal", localConfig({{SourceKind::kJournal}})},
                    Golden{"local-devices", localConfig({{SourceKind::kLogSocket, 0, "/dev/log"},
                                                         {SourceKind::kKernelRing, 0, "/proc/kmsg"}})}),
    [](const auto& one) {
        std::string name = one.param.name;
        std::replace(name.begin(), name.end(), '-', '_');
        return name;
    });

TEST(RenderHandOverConfig, KeepsDestinationsAndReadsNoStream) {
    const ReceiverConfig config = networkConfig("bsd", SourceKind::kTcp);
    const auto afterDestination = [](const std::string& text) {
        return text.substr(text.find("destination d_tcp"));
    };
    const std::string text = renderHandOverConfig(config);
    std::string usual = afterDestination(renderReceiverConfig(config));
    const auto replace = [&usual](const std::string& old, const std::string& next) {
        ASSERT_THAT(usual, HasSubstr(old));
        usual.replace(usual.find(old), old.size(), next);
    };
    replace("batch-timeout(100)", "batch-timeout(1)");
    replace("source(s_tcp)", "source(s_silent)");
    EXPECT_EQ(afterDestination(text), usual);
    EXPECT_THAT(text, Not(HasSubstr("transport(\"tcp\")")));
    EXPECT_THAT(text, HasSubstr("source s_silent { unix-dgram('/run/bsd/silent'); };"));
}

TEST(RenderHandOverConfig, GoesOnReadingWhatCannotBeHeldBack) {
    EXPECT_THAT(renderHandOverConfig(networkConfig("bsd", SourceKind::kUdp)), HasSubstr("transport(\"udp\")"));
    const std::string text = renderHandOverConfig(
        localConfig({{SourceKind::kLogSocket, 0, "/dev/log"}, {SourceKind::kKernelRing, 0, "/proc/kmsg"}}));
    EXPECT_THAT(text, HasSubstr("unix-dgram('/dev/log'"));
    EXPECT_THAT(text, Not(HasSubstr("/proc/kmsg")));
}

TEST(RenderReceiverConfig, KeepsTheDestinationsOfLinesThatAreLeft) {
    ReceiverConfig config = networkConfig("bsd", SourceKind::kTcp);
    config.drains = {ruleSource(SourceKind::kUdp, 0, false, false)};
    const std::string text = renderReceiverConfig(config);
    EXPECT_THAT(text, HasSubstr("source s_silent { unix-dgram('/run/bsd/silent'); };"));
    EXPECT_THAT(text, HasSubstr("destination d_udp"));
    EXPECT_THAT(text, HasSubstr("source(s_silent);\n    rewrite(r_nul);\n    destination(d_udp);"));
    EXPECT_THAT(text, Not(HasSubstr("transport(\"udp\")")));
    config.sources = {ruleSource(SourceKind::kUdp, 514, false, false)};
    const std::string listening = renderReceiverConfig(config);
    EXPECT_THAT(listening, HasSubstr("source(s_udp);\n    rewrite(r_nul);\n    destination(d_udp);"));
    EXPECT_EQ(listening.find("destination d_udp"), listening.rfind("destination d_udp"));
}

TEST(DestinationNames, AreThoseOfTheKindsOfSources) {
    EXPECT_THAT(
        destinationNames(rulesConfig().sources),
        testing::ElementsAre("d_udp", "d_tcp", "d_counted-tls", "d_raw-udp", "d_raw-tcp", "d_counted-tcp"));
    EXPECT_THAT(destinationNames({}), testing::IsEmpty());
}

TEST(RenderReceiverConfig, SharesTheLinesOnTheWayAmongManyListeners) {
    ReceiverConfig config = rulesConfig();
    const auto window = [&config](std::size_t listeners) {
        config.sources.assign(listeners, ruleSource(SourceKind::kTcp, 1514, false, false));
        const std::string text = renderReceiverConfig(config);
        const std::string head = "max-connections(100) log-iw-size(";
        return std::stoi(text.substr(text.find(head) + head.size()));
    };
    EXPECT_EQ(window(1), 100 * 20'000);
    EXPECT_EQ(window(4), 100 * 5'000);
    EXPECT_EQ(window(1000), 100 * 1'000) << "what is read at once";
}

TEST(IsConfigurablePath, RefusesWhatIsNoPathOnOneLine) {
    for (const char* const path : {"/etc/ssl/k\xc3\xa4y (1).pem", "/a'b", "/a\"b", "/a\\b", "/a`b`"})
        EXPECT_TRUE(isConfigurablePath(path)) << path;
    for (const char* const path : {"", "key.pem", "/a\nb", "/a\rb", "/a\x1b[0m", "/a\x7f"})
        EXPECT_FALSE(isConfigurablePath(path)) << path;
    EXPECT_FALSE(isConfigurablePath(std::string("/a\0b", 4)));
}

TEST(CheckReceiver, FailsWhereNoneRuns) {
    const TempFolder folder;
    EXPECT_EQ(checkReceiver({.settings = {}, .runFolder = folder.path()}, networkConfig("bsd", SourceKind::kUdp)),
              1);
}

TEST(PrintReceiverConfig, DoesNotShowTheToken) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(printReceiverConfig(networkConfig("bsd", SourceKind::kUdp)), EX_OK);
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_THAT(text, HasSubstr("Authorization: Bearer (token)"));
    EXPECT_THAT(text, Not(HasSubstr("0123456789abcdef")));
}

}  // namespace
}  // namespace ombrel
