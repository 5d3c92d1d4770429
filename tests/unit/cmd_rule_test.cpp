// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel rule` with the library on the recording platform: what each verb does, and what it refuses.
#include "tests/unit/command_line_run.h"
#include "tests/unit/rule_file.h"
#include "tests/unit/sample_settings.h"

namespace ombrel::test::cmd_rule {

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class RuleCommand : public RuleTest {
protected:
    int run(const Lines& words) { return command.runBelow("rule", words); }
    void expectDone(const Lines& words, const std::string& output) {
        EXPECT_EQ(run(words), 0);
        EXPECT_EQ(command.out, output);
        EXPECT_EQ(command.err, "");
        EXPECT_EQ(platform.jobs[kRuleJob], 1);
    }
    void expectRefused(const Lines& words, int exitCode, const std::string& complaint) {
        const std::string rulesBefore = rules();
        EXPECT_EQ(run(words), exitCode);
        EXPECT_EQ(command.out, "");
        EXPECT_EQ(command.err, "ombrel: " + complaint + "\n");
        EXPECT_EQ(rules(), rulesBefore);
        EXPECT_EQ(ports(), rulePort("lamp", "tcp", "6514") + otherPort);
        EXPECT_EQ(platform.calls.count("VLIBServicectlJobStop"), 0);
    }

    CommandLineRun command;
};

// ---- questions

TEST_F(RuleCommand, ListsTheRulesInFileOrder) {
    expectDone({"list"}, "lamp\toff\tIETF\ttcp+TLS\t6514\ndoor\ton\tBSD\tudp\t2514\n");
}

TEST_F(RuleCommand, ListsNothingWithoutRules) {
    platform.removeFile(kRules);
    expectDone({"list"}, "");
}

TEST_F(RuleCommand, ShowsARule) {
    expectDone({"show", "lamp"},
               "name=\"lamp\"\nformat=\"IETF\"\nprotocol=\"tcp\"\nport=\"6514\"\nssl=\"yes\"\nenable=\"no\"\n");
}

TEST_F(RuleCommand, ShowsWhatCouldSteerATerminalInASafeWay) {
    platform.addFile(kRules, "[a\x1b[2J]\nformat=\"\x1b[2J\"\n");
    expectDone({"show", "a\x1b[2J"},
               "name=\"a\\x1b[2J\"\nformat=\"\\x1b[2J\"\nprotocol=\"\"\nport=\"0\"\nssl=\"no\"\nenable=\"no\"\n");
}

TEST_F(RuleCommand, QuestionsChangeNothing) {
    platform.addFile(kServerConf, sampleText());
    const std::string before = rules();
    for (const Lines& words : {Lines{"list"}, Lines{"show", "lamp"}, Lines{"check"}, Lines{"check", "door"}})
        EXPECT_EQ(run(words), 0) << words[0];
    EXPECT_EQ(rules(), before);
    EXPECT_EQ(platform.calls.count("VLIBServicectlJobStop"), 0);
}

TEST_F(RuleCommand, SaysItsHelp) {
    for (const Lines& words : {Lines{"--help"}, Lines{"add", "--help"}}) {
        EXPECT_EQ(run(words), 0);
        EXPECT_THAT(command.out, StartsWith("usage: ombrel rule "));
        EXPECT_THAT(command.out, HasSubstr("  ombrel rule add printers port=1514\n"));
        EXPECT_EQ(command.err, "");
    }
}

// ---- check

class RuleCommandCheck : public RuleCommand {
protected:
    RuleCommandCheck() { platform.addFile(kServerConf, sampleText()); }
    void expectChecked(const Lines& words, int exitCode, const std::string& output) {
        EXPECT_EQ(run(words), exitCode);
        EXPECT_EQ(command.out, output);
        EXPECT_EQ(command.err, "");
    }
};

TEST_F(RuleCommandCheck, SaysOfEachRuleThatItIsGood) {
    expectChecked({"check"}, 0, "lamp: ok\ndoor: ok\n");
    expectChecked({"check", "door"}, 0, "door: ok\n");
}

TEST_F(RuleCommandCheck, NamesWhatIsWrongWithEach) {
    platform.addFile(kRules, ruleSection({"a", "JSON", "UDP", 0, false, true}) + other +
                                 ruleSection({"b", "RAW", "udp", 1, true, true}));
    expectChecked(
        {"check"}, 1,
        "a: format=\"JSON\": expected BSD, IETF or RAW; protocol=\"UDP\": expected udp or tcp; port=\"0\": "
        "expected a port from 1 to 65535\ndoor: ok\nb: ssl=yes needs protocol=tcp: TLS runs over TCP\n");
    expectChecked({"check", "door"}, 0, "door: ok\n");
    EXPECT_EQ(run({"check", "b"}), 1);
}

TEST_F(RuleCommandCheck, NamesANameThatCouldNotBeGiven) {
    platform.addFile(kRules, ruleSection({"syslog_server", "BSD", "udp", 1, false, true}));
    expectChecked({"check"}, 1,
                  "syslog_server: a rule cannot be named \"syslog_server\": a receiver declares its own port "
                  "under that name\n");
}

TEST_F(RuleCommandCheck, NamesTheOtherRuleOfAPort) {
    platform.addFile(kRules,
                     ruleSection(lampRule()) + other + ruleSection({"c", "RAW", "udp", 2514, false, true}));
    expectChecked({"check"}, 1,
                  "lamp: ok\ndoor: port 2514/udp is also that of the rule \"c\"\n"
                  "c: port 2514/udp is also that of the rule \"door\"\n");
}

TEST_F(RuleCommandCheck, TellsAPortThatOthersHave) {
    platform.conflicts = {"2514/udp"};
    expectChecked(
        {"check"}, 1,
        "lamp: ok\ndoor: port 2514/udp is declared by another rule or service or held by another program\n");
}

TEST_F(RuleCommandCheck, TellsThatTlsHasNoKey) {
    const std::string complaint =
        "lamp: ssl=yes needs server_ca_key and server_ca_file of ombrel settings\ndoor: ok\n";
    platform.addFile(kServerConf, sampleText({{"server_ca_key", ""}}));
    expectChecked({"check"}, 1, complaint);
    platform.addFile(kServerConf, sampleText({{"server_ca_file", ""}}));
    expectChecked({"check"}, 1, complaint);
    expectChecked({"check", "door"}, 0, "door: ok\n");
}

TEST_F(RuleCommandCheck, TellsThatTlsHasNoSettings) {
    platform.removeFile(kServerConf);
    expectChecked(
        {"check", "lamp"}, 1,
        "lamp: ssl=yes needs /var/packages/Ombrel/target/service/conf/server.conf, which cannot be read or "
        "lacks a required key\n");
    expectChecked({"check", "door"}, 0, "door: ok\n");
}

// ---- changes

TEST_F(RuleCommand, AddsARuleWithWhatIsUsualAndShowsIt) {
    expectDone({"add", "printers", "port=1514"},
               "name=\"printers\"\nformat=\"BSD\"\nprotocol=\"udp\"\nport=\"1514\"\nssl=\"no\"\nenable=\"yes\"\n");
    EXPECT_EQ(rules(),
              ruleSection(lampRule()) + other + ruleSection({"printers", "BSD", "udp", 1514, false, true}));
    EXPECT_EQ(ports(), rulePort("lamp", "tcp", "6514") + otherPort + rulePort("printers", "udp", "1514"));
    EXPECT_EQ(platform.calls.linesOf({"VLIBIsPortConflict"}),
              Lines{"VLIBIsPortConflict(\"printers\", \"1514\", \"udp\", 28)"});
}

TEST_F(RuleCommand, AddsARuleAsItIsTold) {
    expectDone(
        {"add", "edge firewall", "ssl=yes", "format=ietf", "enable=no", "port=1514", "protocol=tcp"},
        "name=\"edge firewall\"\nformat=\"ietf\"\nprotocol=\"tcp\"\nport=\"1514\"\nssl=\"yes\"\nenable=\"no\"\n");
    EXPECT_EQ(rules(),
              ruleSection(lampRule()) + other + ruleSection({"edge firewall", "ietf", "tcp", 1514, true, false}));
}

TEST_F(RuleCommand, ChangesARuleAndShowsTheChange) {
    expectDone({"set", "lamp", "port=1514", "ssl=yes", "enable=yes"}, "port=\"1514\"\nenable=\"yes\"\n");
    EXPECT_EQ(rules(), ruleSection({"lamp", "IETF", "tcp", 1514, true, true}) + other);
    EXPECT_EQ(ports(), otherPort + rulePort("lamp", "tcp", "1514"));
    EXPECT_EQ(platform.calls.linesOf({"VLIBIsPortConflict"}),
              Lines{"VLIBIsPortConflict(\"lamp\", \"1514\", \"tcp\", 28)"});
}

TEST_F(RuleCommand, SetsTheSameAgainSoThatAFailedChangeCanBeMended) {
    platform.removeFile(kRulePorts);
    platform.jobs[kRuleJob] = 0;
    expectDone({"set", "lamp", "port=6514"}, "");
    EXPECT_EQ(ports(), rulePort("lamp", "tcp", "6514"));
}

TEST_F(RuleCommand, AsksForThePortOnlyWhenItIsAnother) {
    platform.conflicts = {"6514/tcp"};
    expectDone({"set", "lamp", "enable=yes", "port=6514"}, "enable=\"yes\"\n");
    EXPECT_EQ(platform.calls.count("VLIBIsPortConflict"), 0);
    EXPECT_EQ(run({"set", "lamp", "protocol=udp", "ssl=no"}), 0);
    EXPECT_EQ(platform.calls.linesOf({"VLIBIsPortConflict"}),
              Lines{"VLIBIsPortConflict(\"lamp\", \"6514\", \"udp\", 28)"});
}

TEST_F(RuleCommand, RenamesARule) {
    Rule renamed = lampRule();
    renamed.name = "ceiling lamp";
    expectDone({"rename", "lamp", "ceiling lamp"}, "name=\"ceiling lamp\"\n");
    EXPECT_EQ(rules(), ruleSection(renamed) + other);
    EXPECT_EQ(ports(), otherPort + rulePort("ceiling lamp", "tcp", "6514"));
}

TEST_F(RuleCommand, DeletesARule) {
    expectDone({"delete", "lamp"}, "");
    EXPECT_EQ(rules(), other);
    EXPECT_EQ(ports(), otherPort);
}

TEST_F(RuleCommand, DeletesARuleWhoseNameCouldNotBeGiven) {
    platform.addFile(kRules, other + "[syslog_server]\n[ a ]\n");
    expectDone({"delete", "syslog_server"}, "");
    expectDone({"delete", " a "}, "");
    EXPECT_EQ(rules(), other);
}

TEST_F(RuleCommand, SwitchesARuleOnAndOff) {
    expectDone({"enable", "lamp"}, "enable=\"yes\"\n");
    EXPECT_EQ(rules(), ruleSection({"lamp", "IETF", "tcp", 6514, true, true}) + other);
    expectDone({"enable", "lamp"}, "");
    EXPECT_EQ(platform.calls.count("VLIBServicectlJobStart"), 1);
    expectDone({"disable", "lamp"}, "enable=\"no\"\n");
    EXPECT_EQ(rules(), ruleSection(lampRule()) + other);
}

TEST_F(RuleCommand, SwitchesAlsoARuleThatHasFaults) {
    platform.addFile(kRules, ruleSection({"bad", "JSON", "UDP", 0, false, true}));
    expectDone({"disable", "bad"}, "enable=\"no\"\n");
}

TEST_F(RuleCommand, TakesAPortThatOthersHaveWhenItIsForcedTo) {
    platform.conflicts = {"1514/udp", "514/tcp"};
    EXPECT_EQ(run({"add", "printers", "port=1514", "--force"}), 0);
    EXPECT_EQ(run({"set", "lamp", "--force", "port=514"}), 0);
    EXPECT_EQ(platform.calls.count("VLIBIsPortConflict"), 0);
    EXPECT_THAT(ports(), HasSubstr(rulePort("printers", "udp", "1514")));
    EXPECT_THAT(ports(), HasSubstr(rulePort("lamp", "tcp", "514")));
}

// ---- what is refused

struct Refusal {
    std::string name;
    Lines words;
    std::string complaint;
};

class RuleCommandRefuses : public RuleCommand, public ::testing::WithParamInterface<Refusal> {};

TEST_P(RuleCommandRefuses, InOneLineBeforeAnythingIsDone) {
    platform.conflicts = {"1514/udp"};
    expectRefused(GetParam().words, 64, GetParam().complaint);
}

std::string seeHelp(const std::string& what, const std::string& verb) {
    return what + "; ombrel rule" + (verb.empty() ? "" : " " + verb) + " --help says more";
}
const std::string kRuleVerbs = "list, show, check, add, set, rename, delete, enable or disable";

INSTANTIATE_TEST_SUITE_P(
    Words, RuleCommandRefuses,
    ::testing::Values(
        Refusal{"Nothing", {}, seeHelp("expected a command: " + kRuleVerbs, "")},
        Refusal{"TooMuchToList", {"list", "lamp"}, seeHelp("one word too many: \"lamp\"", "list")},
        Refusal{"NothingToShow", {"show"}, seeHelp("its word NAME is missing", "show")},
        Refusal{"TooMuchToShow", {"show", "lamp", "x"}, seeHelp("one word too many: \"x\"", "show")},
        Refusal{"NothingToAdd", {"add"}, seeHelp("its word NAME is missing", "add")},
        Refusal{"NothingToSet", {"set", "lamp"}, seeHelp("its word KEY=VALUE is missing", "set")},
        Refusal{"NoNewName", {"rename", "lamp"}, seeHelp("its word NEW is missing", "rename")},
        Refusal{"NothingToDelete", {"delete"}, seeHelp("its word NAME is missing", "delete")},
        Refusal{"NothingToDisable", {"disable"}, seeHelp("its word NAME is missing", "disable")},
        Refusal{"OtherVerb", {"remove", "lamp"}, seeHelp("no command \"remove\"; expected " + kRuleVerbs, "")},
        Refusal{"OnlyForce", {"set", "lamp", "--force"}, seeHelp("its word KEY=VALUE is missing", "set")},
        Refusal{"ForceOfRename", {"rename", "lamp", "x", "--force"}, seeHelp("no option \"--force\"", "rename")},
        Refusal{"WordOfAdd", {"add", "roof", "514"}, "\"514\" is not KEY=VALUE"},
        Refusal{"KeyOfAdd",
                {"add", "roof", "colour=red"},
                "no key \"colour\"; expected format, protocol, port, ssl or enable"},
        Refusal{"KeyOfSet",
                {"set", "lamp", "name=x"},
                "no key \"name\"; expected format, protocol, port, ssl or enable"},
        Refusal{"Twice", {"set", "lamp", "port=1", "port=2"}, "port is given twice"}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    Values, RuleCommandRefuses,
    ::testing::Values(
        Refusal{"NoPort", {"add", "roof", "format=RAW"}, "port=N is missing: expected a port from 1 to 65535"},
        Refusal{"Port", {"add", "roof", "port=65536"}, "port=\"65536\": expected a port from 1 to 65535"},
        Refusal{"PortZero", {"set", "lamp", "port=0"}, "port=\"0\": expected a port from 1 to 65535"},
        Refusal{"Format", {"add", "roof", "port=1", "format=x"}, "format=\"x\": expected BSD, IETF or RAW"},
        Refusal{"Protocol", {"set", "lamp", "protocol=UDP"}, "protocol=\"UDP\": expected udp or tcp"},
        Refusal{"Tls", {"add", "roof", "port=1", "ssl=1"}, "ssl=\"1\": expected yes or no"},
        Refusal{"Enable", {"set", "lamp", "enable=on"}, "enable=\"on\": expected yes or no"},
        Refusal{"Escape", {"set", "lamp", "format=\x1b[2J"}, "format=\"\\x1b[2J\": expected BSD, IETF or RAW"},
        Refusal{
            "TlsOverUdp", {"add", "roof", "port=1", "ssl=yes"}, "ssl=yes needs protocol=tcp: TLS runs over TCP"},
        Refusal{"UdpOfTls", {"set", "lamp", "protocol=udp"}, "ssl=yes needs protocol=tcp: TLS runs over TCP"},
        Refusal{"TlsOfUdp", {"set", "door", "ssl=yes"}, "ssl=yes needs protocol=tcp: TLS runs over TCP"},
        Refusal{"ValueOfNoRule", {"set", "none", "port=x"}, "port=\"x\": expected a port from 1 to 65535"}),
    CaseName());

const std::string kAllowedNames =
    ": expected 1 to 255 bytes of UTF-8 without control characters, without \"]\" and without blanks at either "
    "end";

INSTANTIATE_TEST_SUITE_P(
    Names, RuleCommandRefuses,
    ::testing::Values(
        Refusal{"Empty", {"add", "", "port=1"}, "a rule cannot be named \"\"" + kAllowedNames},
        Refusal{"Escape", {"add", "a\x1b", "port=1"}, "a rule cannot be named \"a\\x1b\"" + kAllowedNames},
        Refusal{"NoUtf8", {"rename", "lamp", "a\xff"}, "a rule cannot be named \"a\\xff\"" + kAllowedNames},
        Refusal{"Bracket", {"rename", "lamp", "a]"}, "a rule cannot be named \"a]\"" + kAllowedNames},
        Refusal{"Reserved",
                {"add", "syslog_server", "port=1"},
                "a rule cannot be named \"syslog_server\": a receiver declares its own port under that name"},
        Refusal{"Taken", {"add", "lamp", "port=1"}, "there is a rule \"lamp\" already"},
        Refusal{"NewNameTaken", {"rename", "lamp", "door"}, "there is a rule \"door\" already"},
        Refusal{"OwnName", {"rename", "lamp", "lamp"}, "there is a rule \"lamp\" already"},
        Refusal{"ShowUnknown", {"show", "Lamp"}, "no rule \"Lamp\"; ombrel rule list shows them"},
        Refusal{"SetUnknown", {"set", "none", "port=1"}, "no rule \"none\"; ombrel rule list shows them"},
        Refusal{"RenameUnknown", {"rename", "none", "x"}, "no rule \"none\"; ombrel rule list shows them"},
        Refusal{"DeleteUnknown", {"delete", "none"}, "no rule \"none\"; ombrel rule list shows them"},
        Refusal{"EnableUnknown", {"enable", "none"}, "no rule \"none\"; ombrel rule list shows them"},
        Refusal{"DisableUnknown", {"disable", "\x1b"}, "no rule \"\\x1b\"; ombrel rule list shows them"},
        Refusal{"CheckUnknown", {"check", "none"}, "no rule \"none\"; ombrel rule list shows them"}),
    CaseName());

const std::string kTaken =
    " is declared by another rule or service or held by another program; --force takes it all the same";

INSTANTIATE_TEST_SUITE_P(
    Ports, RuleCommandRefuses,
    ::testing::Values(Refusal{"HeldByOthers", {"add", "roof", "port=1514"}, "port 1514/udp" + kTaken},
                      Refusal{
                          "OfAnotherRule", {"add", "roof", "port=6514", "protocol=tcp"}, "port 6514/tcp" + kTaken},
                      Refusal{"OfAnotherRuleAgain",
                              {"set", "lamp", "port=2514", "protocol=udp", "ssl=no"},
                              "port 2514/udp" + kTaken}),
    CaseName());

TEST_F(RuleCommand, TakesTheTurnForChangesAlone) {
    EXPECT_EQ(run({"list"}), 0);
    EXPECT_EQ(run({"add", "roof", "port=x"}), 64);
    EXPECT_EQ(fakeMachine().turnsTaken, 0);
    fakeMachine().turnResult = 75;
    for (const Lines& words :
         {Lines{"add", "roof", "port=1514"}, Lines{"set", "lamp", "port=1"}, Lines{"rename", "lamp", "x"},
          Lines{"delete", "lamp"}, Lines{"enable", "lamp"}, Lines{"disable", "door"}})
        expectRefused(words, 75, "no turn");
    EXPECT_EQ(fakeMachine().turnsTaken, 6);
}

TEST_F(RuleCommand, AnswersInJson) {
    const std::string lamp =
        R"({"name":"lamp","format":"IETF","protocol":"tcp","port":6514,"ssl":true,"enable":false})";
    const std::string door =
        R"({"name":"door","format":"BSD","protocol":"udp","port":2514,"ssl":false,"enable":true})";
    expectDone({"list", "--json"}, "{\"rules\":[" + lamp + "," + door + "]}\n");
    expectDone({"show", "lamp", "--json"}, lamp + "\n");
    expectDone({"disable", "lamp", "--json"}, "{\"changed\":false,\"rule\":" + lamp + "}\n");
    const std::string roof =
        R"({"name":"roof","format":"RAW","protocol":"tcp","port":1514,"ssl":false,"enable":true})";
    expectDone({"add", "roof", "port=1514", "format=RAW", "protocol=tcp", "--json"},
               "{\"changed\":true,\"rule\":" + roof + "}\n");
    expectDone({"delete", "roof", "--json"}, "{\"deleted\":\"roof\"}\n");
    platform.addFile(kRules, ruleSection({"a", "JSON", "udp", 1, false, true}) + other);
    EXPECT_EQ(run({"check", "--json"}), 1);
    EXPECT_EQ(command.out,
              "{\"ok\":false,\"findings\":[{\"name\":\"a\",\"ok\":false,\"state\":\"wrong\",\"what\":"
              "\"format=\\\"JSON\\\": expected BSD, IETF or RAW\",\"advice\":\"\"},"
              "{\"name\":\"door\",\"ok\":true,\"state\":\"ok\",\"what\":\"\",\"advice\":\"\"}]}\n");
}

TEST_F(RuleCommand, RefusesAChangeOfARuleThatHasOtherFaults) {
    const std::string bad = ruleSection({"bad", "JSON", "udp", 0, false, true});
    platform.addFile(kRules, bad);
    const std::string format =
        "the rule \"bad\" as it stands: format=\"JSON\": expected BSD, IETF or RAW; ombrel rule set mends that";
    expectRefused({"set", "bad", "enable=no"}, 64, format);
    expectRefused({"rename", "bad", "good"}, 64, format);
    expectRefused(
        {"set", "bad", "format=BSD"}, 64,
        "the rule \"bad\" as it stands: port=\"0\": expected a port from 1 to 65535; ombrel rule set mends "
        "that");
    EXPECT_EQ(run({"set", "bad", "format=BSD", "port=1"}), 0);
}

}  // namespace

}  // namespace ombrel::test::cmd_rule
