// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What can be said to `ombrel`: a tree of commands, each with its options and words. The tree is told once, and
// the reading of the words, the help, the completions of the shells and the tests of the manual all follow it.
#pragma once

#include <climits>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "tools/ombrel/context.h"

namespace ombrel {

/// Runs a command whose words have been read; the exit code.
using CommandAction = std::function<int(const Context&)>;

/// A number within bounds, both allowed.
struct NumberPlace {
    long long* value;
    long long least;
    long long most;
};

/// One of several words.
struct ChoicePlace {
    std::string* value;
    std::vector<std::string> allowed;
};

/// Where the value of an option goes: a switch, a text, texts of an option that may be given more than once, a
/// number, a choice.
using OptionPlace = std::variant<bool*, std::string*, std::vector<std::string>*, NumberPlace, ChoicePlace>;

struct CommandOption {
    std::string name;         ///< "--host"
    char letter = 0;          ///< 'f' for "-f"; 0 without one
    std::string placeholder;  ///< "NAME"; empty of a switch
    std::string help;
    OptionPlace place;
};

/// What kind of thing a word or value is, for the completions of the shells.
enum class WordKind { kAny, kPath, kRule, kSetting, kJob };

/// Words that have no option before them, in the order in which they are told.
struct CommandWord {
    std::string placeholder;  ///< "NAME"
    std::string help;
    std::variant<std::string*, std::vector<std::string>*> place;
    bool isRequired = true;
    WordKind kind = WordKind::kAny;
};

/// One command or a group of them. What the places point to must stay as long as the command: keep it in what the
/// action holds. Every command also takes --help, --json and --color.
class Command {
public:
    Command(std::string name, std::string summary) : name_(std::move(name)), summary_(std::move(summary)) {}

    /// A command of this group. The reference stays good.
    Command& add(std::string name, std::string summary);

    Command& flag(std::string name, bool& value, std::string help, char letter = 0);
    Command& text(std::string name, std::string placeholder, std::string& value, std::string help);
    /// An option that may be given more than once.
    Command& texts(std::string name, std::string placeholder, std::vector<std::string>& values, std::string help);
    Command& number(std::string name, std::string placeholder, NumberPlace place, std::string help,
                    char letter = 0);
    Command& choice(std::string name, ChoicePlace place, std::string help);

    Command& word(std::string placeholder, std::string& value, std::string help, WordKind kind = WordKind::kAny);
    Command& optionalWord(std::string placeholder, std::string& value, std::string help,
                          WordKind kind = WordKind::kAny);
    /// All further words: at least one when they are required.
    Command& words(std::string placeholder, std::vector<std::string>& values, std::string help,
                   bool isRequired = true, WordKind kind = WordKind::kAny);
    /// All words as they are, options too: they are meant for another program, which also says the help.
    Command& passOn(std::string placeholder, std::vector<std::string>& values);

    /// A paragraph for the help, behind the summary.
    Command& describe(std::string text);
    /// A line that can be typed.
    Command& example(std::string line);
    /// What an exit code means here, where it is more than the usual.
    Command& exitCode(int code, std::string meaning);
    Command& run(CommandAction action);
    /// For programs, not for people: neither the help nor the completions name it.
    Command& hide();

    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] const std::string& summary() const { return summary_; }
    [[nodiscard]] const std::string& description() const { return description_; }
    [[nodiscard]] const std::list<Command>& commands() const { return commands_; }
    [[nodiscard]] const std::vector<CommandOption>& options() const { return options_; }
    [[nodiscard]] const std::vector<CommandWord>& wordPlaces() const { return words_; }
    [[nodiscard]] const std::vector<std::string>& examples() const { return examples_; }
    [[nodiscard]] const std::vector<std::pair<int, std::string>>& exitCodes() const { return exitCodes_; }
    [[nodiscard]] const CommandAction& action() const { return action_; }
    [[nodiscard]] bool passesOn() const { return passesOn_; }
    [[nodiscard]] bool isHidden() const { return isHidden_; }

private:
    std::string name_;
    std::string summary_;
    std::string description_;
    std::list<Command> commands_;
    std::vector<CommandOption> options_;
    std::vector<CommandWord> words_;
    std::vector<std::string> examples_;
    std::vector<std::pair<int, std::string>> exitCodes_;
    CommandAction action_;
    bool passesOn_ = false;
    bool isHidden_ = false;
};

/// Takes the names of commands out of the words, from the root on: the commands from the root to the one that is
/// named. What is left belongs to that one.
std::vector<const Command*> takeCommandPath(const Command& root, std::vector<std::string>& words);

/// "ombrel archive run". `path`: the commands from the root to the one in question, as in all that follow.
std::string commandName(const std::vector<const Command*>& path);

/// "usage: ..." and all that belongs to it.
std::string commandHelp(const std::vector<const Command*>& path);

/// Reads the words (without the program's own name) and runs the command that they name; the exit code. Wrong
/// words are told in one line on standard error, and nothing is run.
int runCommandLine(const Command& root, const std::vector<std::string>& words);

}  // namespace ombrel
