// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// How the words of a command line are read, and what all commands share: help, tables, JSON, colours.
#include <future>
#include <limits>

#include "tests/fake/platform_test.h"
#include "tests/unit/command_line_run.h"
#include "tools/ombrel/completion.h"
#include "tools/ombrel/json_writer.h"
#include "tools/ombrel/table.h"
#include "tools/ombrel/waiting.h"

namespace ombrel::test::command_line {

namespace {

/// A tree with one command of each kind, which says what it was told.
class CommandLine : public PlatformTest {
protected:
    CommandLine() {
        root.add("find", "Find rows.")
            .flag("--follow", follow, "go on", 'f')
            .text("--host", "NAME", host, "of this host alone")
            .texts("--tag", "TAG", tags, "may be given more than once")
            .number("--limit", "N", {&limit, 1, 1000}, "at most so many", 'n')
            .choice("--format", {&format, {"table", "json", "csv"}}, "how rows look")
            .optionalWord("TEXT", text, "what to look for")
            .describe("The second paragraph.")
            .example("ombrel find --host router link")
            .exitCode(1, "nothing was found")
            .run([this](const Context& context) {
                seen = context;
                ++runs;
                return 7;
            });
        Command& group = root.add("box", "Boxes.");
        group.add("list", "List them.").run([this](const Context&) { return ++runs, 0; });
        group.add("put", "Put things in.")
            .word("BOX", text, "where")
            .words("THING", things, "what")
            .run([this](const Context&) { return ++runs, 0; });
        root.add("other", "Another program.").passOn("WORD", things).run([this](const Context&) {
            return ++runs, 0;
        });
    }
    int run(const Lines& words) { return line.run(root, words); }

    Command root{"ombrel", "A test."};
    bool follow = false;
    std::string host;
    Lines tags;
    long long limit = 10;
    std::string format = "table";
    std::string text;
    Lines things;
    Context seen;
    int runs = 0;
    CommandLineRun line;
};

TEST_F(CommandLine, GivesEachOptionAndWordItsPlace) {
    EXPECT_EQ(run({"find", "-f", "--host=a b", "--tag", "x", "link [down]", "--tag", "-y", "-n", "5", "--format",
                   "csv"}),
              7);
    EXPECT_TRUE(follow);
    EXPECT_EQ(host, "a b");
    EXPECT_EQ(tags, Lines({"x", "-y"}));
    EXPECT_EQ(limit, 5);
    EXPECT_EQ(format, "csv");
    EXPECT_EQ(text, "link [down]");
    EXPECT_EQ(line.out + line.err, "");
}

TEST_F(CommandLine, LeavesWhatIsNotGivenAsItWas) {
    EXPECT_EQ(run({"find"}), 7);
    EXPECT_FALSE(follow);
    EXPECT_EQ(limit, 10);
    EXPECT_EQ(format, "table");
}

TEST_F(CommandLine, TakesWordsAsTheyAre) {
    EXPECT_EQ(run({"box", "put", "[a,b]", "[c,d]", "", "box", "--", "-e"}), 0);
    EXPECT_EQ(text, "[a,b]");
    EXPECT_EQ(things, Lines({"[c,d]", "", "box", "-e"}));
}

TEST_F(CommandLine, LooksForAWordThatIsTheNameOfACommand) {
    EXPECT_EQ(run({"find", "box"}), 7);
    EXPECT_EQ(text, "box");
}

TEST_F(CommandLine, PassesAllWordsOn) {
    EXPECT_EQ(run({"other", "--help", "find", "-x"}), 0);
    EXPECT_EQ(things, Lines({"--help", "find", "-x"}));
}

TEST_F(CommandLine, TakesTheCommonOptionsBeforeAndBehindTheCommand) {
    for (const Lines& words :
         {Lines{"--json", "--color", "always", "find"}, {"find", "--color=always", "--json"}}) {
        seen = {};
        EXPECT_EQ(run(words), 7);
        EXPECT_TRUE(seen.json);
        EXPECT_TRUE(seen.out.hasColours);
        EXPECT_FALSE(seen.out.isTerminal);
    }
    EXPECT_EQ(run({"find"}), 7);
    EXPECT_FALSE(seen.out.hasColours);  // standard output is a file here
}

struct WrongLine {
    std::string name;
    Lines words;
    std::string complaint;
};

class CommandLineRefuses : public CommandLine, public ::testing::WithParamInterface<WrongLine> {};

TEST_P(CommandLineRefuses, WrongWordsInOneLine) {
    EXPECT_EQ(run(GetParam().words), 64);
    EXPECT_EQ(line.out, "");
    EXPECT_EQ(line.err, "ombrel: " + GetParam().complaint + " --help says more\n");
    EXPECT_EQ(runs, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Words, CommandLineRefuses,
    ::testing::Values(
        WrongLine{"Nothing", {}, "expected a command: find, box or other; ombrel"},
        WrongLine{"Command", {"fnid"}, "no command \"fnid\"; expected find, box or other; ombrel"},
        WrongLine{"Escape", {"\x1b[2J"}, "no command \"\\x1b[2J\"; expected find, box or other; ombrel"},
        WrongLine{"Group", {"box"}, "expected a command: list or put; ombrel box"},
        WrongLine{"InGroup", {"box", "get"}, "no command \"get\"; expected list or put; ombrel box"},
        WrongLine{"Option", {"find", "--hots", "a"}, "no option \"--hots\"; ombrel find"},
        WrongLine{"TooMany", {"find", "a", "b"}, "one word too many: \"b\"; ombrel find"},
        WrongLine{"NotEnough", {"box", "put"}, "its word BOX is missing; ombrel box put"},
        WrongLine{"NoneOfMany", {"box", "put", "a"}, "its word THING is missing; ombrel box put"},
        WrongLine{
            "NoNumber", {"find", "--limit", "x"}, "--limit \"x\": expected a number from 1 to 1000; ombrel find"},
        WrongLine{"NumberTooLarge",
                  {"find", "-n", "99999999999999999999"},
                  "--limit \"99999999999999999999\": expected a number from 1 to 1000; ombrel find"},
        WrongLine{"NumberAndMore",
                  {"find", "--limit=5x"},
                  "--limit \"5x\": expected a number from 1 to 1000; ombrel find"},
        WrongLine{
            "Choice", {"find", "--format", "xml"}, "--format \"xml\": expected table, json or csv; ombrel find"},
        WrongLine{"Colour",
                  {"find", "--color", "blue"},
                  "--color \"blue\": expected auto, always or never; ombrel find"}),
    CaseName());

TEST_F(CommandLine, SaysThatAValueIsMissing) {
    EXPECT_EQ(run({"find", "--host"}), 64);
    EXPECT_EQ(line.err, "ombrel: --host: its value is missing; ombrel find --help says more\n");
    EXPECT_EQ(run({"find", "--host", "a", "--host", "b"}), 64);
    EXPECT_EQ(line.err, "ombrel: --host is given twice; ombrel find --help says more\n");
}

TEST_F(CommandLine, HelpsWithACommand) {
    EXPECT_EQ(run({"find", "--limit", "junk", "--help"}), 0);
    EXPECT_EQ(line.err, "");
    EXPECT_EQ(line.out, R"(usage: ombrel find [OPTION...] [TEXT]
Find rows.

The second paragraph.

Words:
  TEXT  what to look for

Options:
  -f, --follow             go on
  --host NAME              of this host alone
  --tag TAG                may be given more than once
  -n, --limit N            at most so many
  --format table|json|csv  how rows look

Options of every command:
  --json                     the answer as JSON, one document a line
  --color auto|always|never  colours; auto: on a terminal alone
  --help                     this text

Examples:
  ombrel find --host router link

Exit codes:
  0   done
  1   nothing was found
  64  wrong words; nothing was done
  77  a right is missing
  78  the settings cannot be read
)");
    EXPECT_EQ(runs, 0);
}

TEST_F(CommandLine, HelpsWithAGroup) {
    for (const Lines& words : {Lines{"box", "--help"}, {"--help", "box"}, {"box", "junk", "--help"}}) {
        EXPECT_EQ(run(words), 0);
        EXPECT_EQ(
            line.out.substr(0, line.out.find("\nOptions")),
            "usage: ombrel box COMMAND ...\nBoxes.\n\nCommands:\n  list  List them.\n  put   Put things in.\n");
    }
}

class Completions : public CommandLine {
protected:
    Lines candidates(const Lines& words) {
        const Completion completion = completionOf(root, words, [](WordKind kind) {
            return kind == WordKind::kRule ? Lines{"printers", "edge"} : Lines();
        });
        Lines found;
        for (const Candidate& candidate : completion.candidates)
            found.push_back(candidate.word);
        if (completion.files) found.emplace_back("FILES");
        return found;
    }
};

TEST_F(Completions, AreWhatMayFollow) {
    root.add("hidden", "For programs.").hide();
    root.add("rule", "Rules.")
        .word("RULE", text, "", WordKind::kRule)
        .word("KEY=VALUE", host, "", WordKind::kRule);
    const std::vector<std::pair<Lines, Lines>> cases = {
        {{}, {"find", "box", "other", "rule"}},
        {{"f"}, {"find"}},
        {{"box", ""}, {"list", "put"}},
        {{"--color", "a"}, {"auto", "always"}},
        {{"--color", "never", "b"}, {"box"}},
        {{"find", "--f"}, {"--follow", "--format"}},
        {{"find", "--format", ""}, {"table", "json", "csv"}},
        {{"find", "--format=t"}, {"--format=table"}},
        {{"find", "--format", "csv", "--fo"}, {"--follow"}},
        {{"find", "--tag", "x", "--t"}, {"--tag"}},
        {{"find", "--limit", ""}, {}},
        {{"find", ""}, {}},
        {{"rule", "p"}, {"printers"}},
        {{"rule", "printers", ""}, {"printers=", "edge="}},
        {{"rule", "--json", "printers", "e"}, {"edge="}},
        {{"other", "find", ""}, {"FILES"}},
        {{"nothing", ""}, {"find", "box", "other", "rule"}},
    };
    for (const auto& [words, expected] : cases)
        EXPECT_EQ(candidates(words), expected) << (words.empty() ? "" : words.back());
}

TEST(CommandTree, OffersAnExampleAndHelpForEverything) {
    const Command root = ombrelCommands();
    const std::function<void(const Command&, const std::string&)> look = [&](const Command& command,
                                                                             const std::string& name) {
        EXPECT_NE(command.summary(), "") << name;
        EXPECT_TRUE(!command.action() || command.isHidden() || !command.examples().empty()) << name;
        EXPECT_TRUE(command.action() || !command.commands().empty()) << name;
        for (const CommandOption& option : command.options())
            EXPECT_NE(option.help, "") << name << " " << option.name;
        for (const Command& sub : command.commands())
            look(sub, name + " " + sub.name());
    };
    look(root, "ombrel");
}

TEST(JsonWriterText, IsAsciiWithoutAnythingRaw) {
    JsonWriter json;
    json.beginObject()
        .member("a", "x\x1b\xff\"")
        .member("n", std::numeric_limits<long long>::min())
        .member("yes", true)
        .member("none", std::optional<std::string>())
        .key("list")
        .beginArray()
        .number(1)
        .beginObject()
        .endObject()
        .beginArray()
        .endArray()
        .endArray()
        .endObject();
    EXPECT_EQ(json.takeLine(),
              "{\"a\":\"x\\u001b\\ufffd\\\"\",\"n\":-9223372036854775808,\"yes\":true,\"none\":null,"
              "\"list\":[1,{},[]]}\n");
    json.beginArray().endArray();
    EXPECT_EQ(json.takeLine(), "[]\n");
}

/// Runs a call that comes back once its extent was asked that often, which is ten times a second.
std::string shownWhileWaiting(const Terminal& terminal, int asked) {
    ::testing::internal::CaptureStderr();
    std::promise<void> enough;
    {
        int count = 0;
        const Waiting waiting(terminal, "moving", [&]() -> Waiting::Extent {
            if (++count == asked) enough.set_value();
            return {50, 100};
        });
        if (terminal.isTerminal) enough.get_future().wait();
    }
    return ::testing::internal::GetCapturedStderr();
}

TEST(WaitingLine, IsShownAfterASecondAndTakenAwayAtTheEnd) {
    const std::string shown = shownWhileWaiting({true, false, 80, 24}, 12);
    EXPECT_THAT(shown, ::testing::StartsWith("\r\x1b[Kmoving [############............]  50 % 0.0 MB"));
    EXPECT_THAT(shown, ::testing::EndsWith("left\r\x1b[K"));
}

TEST(WaitingLine, IsNotShownForWhatIsQuickOrWhereNobodyLooks) {
    EXPECT_EQ(shownWhileWaiting({true, false, 80, 24}, 1), "");
    EXPECT_EQ(shownWhileWaiting({}, 1), "");
}

Table sampleTable() {
    Table table({{"name"}, {"rows", Align::kRight}, {"what"}});
    table.add({{"b\x1b[2J", Colour::kRed}, {"7"}, {"0123456789012345678901234567890123456789"}});
    table.add({{""}, {"12,345"}, {"\xc3\xa9\tx"}});
    return table;
}

TEST(TableText, IsAlignedUnderAHeadOnATerminalAndCutToItsWidth) {
    EXPECT_EQ(sampleTable().text({true, false, 40, 24}),
              "name        rows  what\n"
              "b\\x1b[2J       7  0123456789012345678901\n"
              "-         12,345  \xc3\xa9\\x09x\n");
}

TEST(TableText, HasTabsBetweenItsCellsElsewhere) {
    EXPECT_EQ(sampleTable().text({}),
              "b\\x1b[2J\t7\t0123456789012345678901234567890123456789\n-\t12,345\t\xc3\xa9\\x09x\n");
    EXPECT_EQ(Table({{"name"}}).text({true, true, 80, 24}), "");
}

TEST(TableText, IsColouredWithoutLosingItsColumns) {
    Table table({{"a"}, {"b"}});
    table.add({{"x", Colour::kGreen}, {"y"}});
    EXPECT_EQ(table.text({true, true, 80, 24}), "\x1b[1ma\x1b[0m  \x1b[1mb\x1b[0m\n\x1b[32mx\x1b[0m  y\n");
}

}  // namespace

}  // namespace ombrel::test::command_line
