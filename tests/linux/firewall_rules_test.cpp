// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the firewall is told, as text.
#include "linux/veskfirewall/firewall_rules.h"

#include <gmock/gmock.h>

#include "linux/common/error_record.h"
#include "linux/veskfirewall/firewall_state.h"

namespace ombrel {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kPath = "/usr/local/etc/services.d/firewall.conf";

FirewallSettings settingsOf(const char* text) {
    FirewallSettings settings;
    SettingsFault fault;
    EXPECT_EQ(parseFirewallSettings(text, kPath, settings, fault), 0) << describe(fault);
    return settings;
}

std::string wordsFor(const char* text) {
    FirewallSettings settings;
    SettingsFault fault;
    EXPECT_EQ(parseFirewallSettings(text, kPath, settings, fault), -1) << text;
    EXPECT_EQ(fault.code, kErrorInvalidArgument);
    EXPECT_TRUE(settings.drops);
    return describe(fault);
}

TEST(FirewallSettings, KeepSshOpenUnlessToldOtherwise) {
    for (const char* text : {"", "# nothing\n\n", "policy=\"drop\"\n"}) {
        EXPECT_TRUE(settingsOf(text).drops);
        EXPECT_EQ(settingsOf(text).alwaysOpen, (OpenPorts{{{22, 22}}, {}}));
    }
}

TEST(FirewallSettings, AreTwoKeys) {
    const FirewallSettings settings =
        settingsOf("always_open = 2222/tcp, 5353/udp\r\npolicy=\"accept\"\npolicy=\"x\"\n");
    EXPECT_FALSE(settings.drops);
    EXPECT_EQ(settings.alwaysOpen, (OpenPorts{{{2222, 2222}}, {{5353, 5353}}}));
    EXPECT_EQ(settingsOf("always_open=\"\"\n").alwaysOpen, OpenPorts{});
}

TEST(FirewallSettings, AreRefusedWithTheirPlaceAndWhatIsExpected) {
    const std::string path = std::string(kPath) + ": ";
    EXPECT_EQ(wordsFor("policy=\"deny\"\n"), path + "policy=\"deny\": expected \"drop\" or \"accept\"");
    EXPECT_EQ(wordsFor("always_open=\"ssh\"\n"),
              path +
                  "always_open=\"ssh\": expected at most 256 ports or ranges, each with its protocol, such as "
                  "\"22/tcp,5353/udp\", or nothing");
    EXPECT_EQ(wordsFor("policy=\"accept\"\nalwaysopen=\"2222/tcp\"\n"),
              path + "alwaysopen=\"2222/tcp\": expected the keys \"policy\" and \"always_open\" alone");
    EXPECT_THAT(wordsFor("drop\n"), HasSubstr(": drop=\"\": expected the keys"));
    EXPECT_THAT(wordsFor("[firewall]\n"), HasSubstr("[firewall]=\"\": expected the keys"));
}

TEST(OpenPorts, AreTheDeclaredOnesAndThoseThatAreAlwaysOpen) {
    const std::vector<Declaration> declarations = {
        {"a.sc", "one", "", "", {false, true}, {{514, 514}, {515, 520}}},
        {"b.sc", "two", "", "", {true, true}, {{6514, 6520}, {518, 530}}},
        {"b.sc", "three", "", "", {true, false}, {{22, 22}, {6520, 6530}}},
    };
    EXPECT_EQ(openPorts(declarations, {}),
              (OpenPorts{{{22, 22}, {518, 530}, {6514, 6530}}, {{514, 530}, {6514, 6520}}}));
    EXPECT_EQ(openPorts({}, {}), (OpenPorts{{{22, 22}}, {}}));
    EXPECT_EQ(openPorts({}, {true, {}}), OpenPorts{});
}

TEST(FirewallRules, ReplaceOneTableInOneGo) {
    EXPECT_EQ(renderRules({{{22, 22}, {6514, 6520}}, {{514, 514}}}, true), R"(add table inet ombrel
delete table inet ombrel
table inet ombrel {
    set open_ports {
        type inet_proto . inet_service
        flags interval
        elements = { tcp . 22, tcp . 6514-6520, udp . 514 }
    }
    chain input {
        type filter hook input priority filter; policy drop;
        iif lo accept
        ct state established,related accept
        meta l4proto { icmp, ipv6-icmp } accept
        ct state invalid drop
        meta nfproto ipv4 udp sport 67 udp dport 68 accept
        ip6 saddr fe80::/10 udp sport 547 udp dport 546 accept
        meta l4proto . th dport @open_ports accept
    }
}
)");
}

TEST(FirewallRules, DropNothingWhereThePolicyAccepts) {
    const std::string rules = renderRules({{{22, 22}}, {}}, false);
    EXPECT_THAT(rules, HasSubstr("policy accept;"));
    EXPECT_THAT(rules, Not(HasSubstr("drop")));
}

TEST(FirewallRules, HaveAnEmptySetWhereNothingIsOpen) {
    EXPECT_THAT(renderRules({}, true), Not(HasSubstr("elements")));
    EXPECT_THAT(renderRules({{}, {{1, 65535}}}, true), HasSubstr("elements = { udp . 1-65535 }"));
}

TEST(FirewallState, IsWhatWasRendered) {
    const OpenPorts open = {{{22, 22}, {6514, 6520}}, {{514, 514}}};
    const auto drops = parseFirewallState(renderRules(open, true));
    ASSERT_TRUE(drops);
    EXPECT_TRUE(drops->drops);
    EXPECT_EQ(drops->open, open);
    const auto accepts = parseFirewallState(renderRules({}, false));
    ASSERT_TRUE(accepts);
    EXPECT_FALSE(accepts->drops);
    EXPECT_EQ(accepts->open, OpenPorts());
}

TEST(FirewallState, IsReadAsTheKernelListsIt) {
    const auto state = parseFirewallState(
        "table inet ombrel {\n\tset open_ports {\n\t\ttype inet_proto . inet_service\n\t\tflags interval\n"
        "\t\telements = { tcp . 22, udp . 5514-5515,\n\t\t\t     tcp . 7001 }\n\t}\n\tchain input {\n"
        "\t\ttype filter hook input priority filter; policy drop;\n\t}\n}\n");
    ASSERT_TRUE(state);
    EXPECT_EQ(state->open, (OpenPorts{{{22, 22}, {7001, 7001}}, {{5514, 5515}}}));
}

TEST(FirewallState, IsNothingOfAnotherTable) {
    for (const char* text :
         {"", "table inet ombrel {\n}\n", "set open_ports {\nelements = { icmp . 1 }\n}",
          "set open_ports {\nelements = { tcp . x }\n}", "set open_ports {\nelements = { tcp }\n}"})
        EXPECT_FALSE(parseFirewallState(text)) << text;
}

}  // namespace
}  // namespace ombrel
