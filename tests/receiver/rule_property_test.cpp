// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Rules of random bytes, changed by the platform as the library does it and read by the receiver at once, which
// must come to the same. Each run is that of its seed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/veskcore.h"
#include "receiver/launcher/child.h"
#include "receiver/launcher/receiver_config.h"
#include "receiver/launcher/receiver_files.h"
#include "receiver/rules/rule_file.h"
#include "receiver/rules/rule_sources.h"
#include "tests/contract/core_handles.h"
#include "tests/receiver/temp_folder.h"

inline bool operator==(const _CUSTOMIZED_RULE_tag& a, const _CUSTOMIZED_RULE_tag& b) {
    return a.name == b.name && a.format == b.format && a.protocol == b.protocol && a.port == b.port &&
           a.ssl == b.ssl && a.enable == b.enable;
}
inline void PrintTo(const _CUSTOMIZED_RULE_tag& rule, std::ostream* out) {
    *out << testing::PrintToString(rule.name) << " " << testing::PrintToString(rule.format) << " "
         << testing::PrintToString(rule.protocol) << " " << rule.port << " " << rule.ssl << " " << rule.enable;
}

namespace ombrel {
namespace {

using Rule = _CUSTOMIZED_RULE_tag;

constexpr const char* kFormat = "%s=\"%s\"\n";
constexpr const char* kSyslogNg = "/usr/sbin/syslog-ng";

/// Words that mean something somewhere, and bytes that mean nothing.
class Chance {
public:
    explicit Chance(unsigned seed) : engine_(seed) {}

    std::size_t below(std::size_t count) {
        return std::uniform_int_distribution<std::size_t>(0, count - 1)(engine_);
    }
    template <typename Items>
    const auto& oneOf(const Items& items) {
        return items[below(std::size(items))];
    }
    /// Without NUL, which no text of the interface can hold.
    std::string bytes(std::size_t most) {
        std::string text(below(most + 1), '\0');
        for (char& c : text)
            c = static_cast<char>(1 + below(255));
        return text;
    }
    /// Pieces that settings files, syslog-ng and terminals read something into.
    std::string pieces(std::size_t most) {
        static const std::vector<std::string> kPieces = {"[",
                                                         "]",
                                                         "[a]\n",
                                                         "=",
                                                         "\"",
                                                         "#",
                                                         "\n",
                                                         "\r\n",
                                                         " ",
                                                         "\t",
                                                         "port",
                                                         "ssl",
                                                         "enable",
                                                         "yes",
                                                         "\"no\"",
                                                         "format",
                                                         "BSD",
                                                         "IETF",
                                                         "protocol",
                                                         "udp",
                                                         "514",
                                                         "-1",
                                                         "99999999999999999999",
                                                         "\xEF\xBB\xBF",
                                                         "\xff",
                                                         "\\",
                                                         "`",
                                                         "${HOST}",
                                                         "); };",
                                                         "@include",
                                                         "\x1b[2J"};
        std::string text;
        for (std::size_t i = below(most + 1); i > 0; --i)
            text += below(8) == 0 ? bytes(4) : oneOf(kPieces);
        return text;
    }
    std::string text(std::initializer_list<const char*> everyday) {
        const std::size_t kind = below(8);
        if (kind == 0) return bytes(300);
        if (kind == 1) return pieces(6);
        return *(everyday.begin() + below(everyday.size()));
    }
    int port() {
        static constexpr int kOdd[] = {0, -1, 1, 65535, 65536, 2147483647, -2147483647 - 1};
        return below(8) == 0 ? oneOf(kOdd) : 514 + static_cast<int>(below(20));
    }
    Rule rule() {
        return {text({"a", "b", "c", "d", "e", "lamp", "Z\xc3\xbcrich", "a b"}),
                text({"BSD", "IETF", "RAW", "bsd", "Raw", "XML"}),
                text({"udp", "tcp", "UDP"}),
                port(),
                below(3) == 0,
                below(4) != 0};
    }

    std::vector<Rule> rules(std::size_t count) {
        std::vector<Rule> result(count);
        std::generate(result.begin(), result.end(), [this] { return rule(); });
        return result;
    }

private:
    std::mt19937 engine_;
};

contract::Hash keysOf(const Rule& rule) {
    return contract::hashOf({{"format", rule.format},
                             {"protocol", rule.protocol},
                             {"port", std::to_string(rule.port)},
                             {"ssl", rule.ssl ? "yes" : "no"},
                             {"enable", rule.enable ? "yes" : "no"}});
}

/// As the library reads one: by itself, each key where there is one.
Rule readAlone(const std::string& path, const std::string& name) {
    contract::Hash keys(VLIBCSzHashAlloc(1024));
    VLIBSZHASH* raw = keys.get();
    EXPECT_GE(VLIBCFileGetSection(path.c_str(), name.c_str(), &raw), 0);
    const auto value = [&keys](const char* key) {
        const char* const text = VLIBCSzHashGetValue(keys.get(), key);
        return std::string(text == nullptr ? "" : text);
    };
    return {name,
            value("format"),
            value("protocol"),
            static_cast<int>(std::strtol(value("port").c_str(), nullptr, 10)),
            value("ssl") == "yes",
            value("enable") == "yes"};
}

std::vector<Rule> readOneByOne(const std::string& path) {
    contract::List names;
    EXPECT_EQ(VLIBCFileEnumSection(path.c_str(), names.address()), 0);
    std::vector<Rule> rules;
    for (const std::string& name : names.texts())
        rules.push_back(readAlone(path, name));
    return rules;
}

std::vector<Rule> readAtOnce(const std::string& path) {
    std::vector<Rule> rules;
    EXPECT_EQ(readRules(path, rules), 0);
    return rules;
}

ReceiverConfig configOf(const RuleSources& chosen, const std::string& folder) {
    ReceiverConfig config;
    config.name = "custrule";
    config.sources = chosen.sources;
    config.needsAll = false;
    config.sharesUdpPorts = false;
    config.writerPort = 5615;
    config.token = "0123456789abcdef";
    config.queueFolder = folder;
    return config;
}

class RandomRules : public testing::TestWithParam<unsigned> {
protected:
    RandomRules() { writeText(path, "# by hand\n\n"); }

    std::vector<Rule>::iterator find(const std::string& name) {
        return std::find_if(wanted.begin(), wanted.end(), [&](const Rule& rule) { return rule.name == name; });
    }
    /// One that is there, or one that most likely is not.
    std::string someName() {
        return wanted.empty() || chance.below(5) == 0 ? chance.rule().name : chance.oneOf(wanted).name;
    }

    // Each does to the file what it says, and to `wanted` when the platform has taken it. Whether it has.
    bool add() {
        const Rule rule = chance.rule();
        if (VLIBCFileAddSection(path.c_str(), rule.name.c_str(), keysOf(rule).get(), kFormat) < 0) return false;
        wanted.push_back(rule);
        return true;
    }
    bool replace() {
        const std::string name = someName();
        const Rule rule = chance.rule();
        if (VLIBCFileSetSection(path.c_str(), name.c_str(), rule.name.c_str(), keysOf(rule).get(), kFormat) < 0)
            return false;
        *find(name) = rule;
        return true;
    }
    bool remove() {
        const std::string name = someName();
        if (VLIBCFileRemoveSection(path.c_str(), name.c_str()) < 0) return false;
        wanted.erase(find(name));
        return true;
    }
    bool toggle() {
        const std::string name = someName();
        const bool on = chance.below(2) == 0;
        if (VLIBCFileSetSectionValue(path.c_str(), name.c_str(), "enable", on ? "yes" : "no") < 0) return false;
        if (find(name) == wanted.end()) wanted.push_back({name, "", "", 0, false, false});  // a section of its own
        find(name)->enable = on;
        return true;
    }
    bool changeSomething() {
        switch (chance.below(6)) {
            case 0:
                return replace();
            case 1:
                return remove();
            case 2:
                return toggle();
            default:
                return add();
        }
    }

    const TempFolder folder;
    const std::string path = folder / "custrule.conf";
    Chance chance{GetParam()};
    std::vector<Rule> wanted;
};

TEST_P(RandomRules, AreReadBackAsTheyWereTaken) {
    int taken = 0;
    constexpr int kChanges = 150;
    for (int i = 0; i < kChanges; ++i) {
        const std::string before = readText(path);
        if (changeSomething()) {
            ++taken;
        } else {
            ASSERT_EQ(readText(path), before) << "refused, change " << i;
        }
        ASSERT_EQ(readAtOnce(path), wanted) << "change " << i;
    }
    EXPECT_EQ(readOneByOne(path), wanted);
    EXPECT_GT(taken, kChanges / 4);
    EXPECT_LT(taken, kChanges) << "nothing was refused";
}

TEST_P(RandomRules, AreServedOnDistinctPortsOrLeftOut) {
    const std::vector<Rule> rules = chance.rules(200);
    const RuleSources chosen = chooseRuleSources(rules, "");
    std::set<std::pair<bool, int>> ports;
    for (const Source& source : chosen.sources) {
        EXPECT_GE(source.port, 1);
        EXPECT_TRUE(ports.emplace(source.kind == SourceKind::kUdp, source.port).second) << source.port;
    }
    const auto enabled = std::count_if(rules.begin(), rules.end(), [](const Rule& rule) { return rule.enable; });
    const auto leftOut = std::count_if(
        chosen.remarks.begin(), chosen.remarks.end(),
        [](const std::string& remark) { return remark.find("\" is left out: ") != std::string::npos; });
    EXPECT_EQ(std::ssize(chosen.sources) + leftOut, enabled);
    EXPECT_GT(chosen.sources.size(), 10U);
}

// Nothing but ports, formats and transports of rules gets there; and syslog-ng takes it.
TEST_P(RandomRules, BecomeAConfigurationWithoutTheirWords) {
    std::vector<Rule> rules = chance.rules(100);
    const std::string noTls = "no certificate here";
    const RuleSources chosen = chooseRuleSources(rules, noTls);
    const std::string text = renderReceiverConfig(configOf(chosen, folder.path()));
    for (std::size_t i = 0; i < rules.size(); ++i) {
        Rule& rule = rules[i];
        rule.name = "rule " + std::to_string(i);
        if (rule.protocol != "udp") rule.protocol = "tcp";
        if (chooseRuleSources({{"x", rule.format, "tcp", 514, false, true}}, "").sources.empty())
            rule.format = "unknown";
    }
    EXPECT_EQ(renderReceiverConfig(configOf(chooseRuleSources(rules, noTls), folder.path())), text);
    EXPECT_EQ(
        std::find_if_not(text.begin(), text.end(), [](char c) { return c == '\n' || (c >= ' ' && c <= '~'); }),
        text.end());
    if (::access(kSyslogNg, X_OK) != 0) GTEST_SKIP() << kSyslogNg << " is not installed";
    const ReceiverFiles files(folder.path(), "custrule");
    ASSERT_TRUE(std::filesystem::create_directory(files.folder));
    EXPECT_EQ(writeCheckedConfiguration(kSyslogNg, files, text), EX_OK);
}

TEST_P(RandomRules, AreReadFromJunkAsTheLibraryReadsThem) {
    for (int i = 0; i < 200; ++i) {
        const std::string junk = chance.pieces(60);
        writeText(path, junk);
        ASSERT_EQ(readAtOnce(path), readOneByOne(path)) << testing::PrintToString(junk);
    }
}

TEST_P(RandomRules, AreReadFromBytesOfAnyKind) {
    for (int i = 0; i < 50; ++i) {
        std::string junk = chance.pieces(20) + chance.bytes(2000) + chance.pieces(20);
        for (char& c : junk) {
            if (chance.below(50) == 0) c = '\0';
        }
        const std::vector<Rule> rules = parseRules(junk);
        const RuleSources chosen = chooseRuleSources(rules, "");
        EXPECT_LE(chosen.sources.size(), rules.size());
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomRules, testing::Range(1U, 9U));

}  // namespace
}  // namespace ombrel
