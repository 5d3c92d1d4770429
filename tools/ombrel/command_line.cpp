// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The one place that knows CLI11, which takes its time to compile. It reads the options and words of one command;
// which command is meant is told from the names alone, so that a word like that of a command can be searched for.
#include <sysexits.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>

#include "tools/ombrel/answer.h"
#include "tools/ombrel/command.h"

namespace ombrel {

namespace {

using Words = std::vector<std::string>;

/// The options that every command takes.
struct Common {
    bool json = false;
    std::string color = "auto";
};

std::string listOf(const Words& words) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i)
        text += (i == 0 ? "" : i + 1 == words.size() ? " or " : ", ") + words[i];
    return text;
}

[[noreturn]] void refuse(const std::string& name, const std::string& value, const std::string& expected) {
    throw CLI::ValidationError(name + " \"" + value + "\"", "expected " + expected);
}

void setNumber(const std::string& name, const std::string& text, const NumberPlace& place) {
    long long value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, code] = std::from_chars(text.data(), end, value);
    if (code != std::errc{} || stop != end || value < place.least || value > place.most) {
        refuse(name, text, "a number from " + std::to_string(place.least) + " to " + std::to_string(place.most));
    }
    *place.value = value;
}

void setChoice(const std::string& name, const std::string& text, const ChoicePlace& place) {
    if (std::find(place.allowed.begin(), place.allowed.end(), text) == place.allowed.end()) {
        refuse(name, text, listOf(place.allowed));
    }
    *place.value = text;
}

/// Puts the values of one option to their place.
struct Setter {
    const std::string& name;
    const Words& values;

    void operator()(bool* place) const { *place = true; }
    void operator()(std::string* place) const { *place = values.back(); }
    void operator()(Words* place) const { place->insert(place->end(), values.begin(), values.end()); }
    void operator()(const NumberPlace& place) const { setNumber(name, values.back(), place); }
    void operator()(const ChoicePlace& place) const { setChoice(name, values.back(), place); }
};

void addOption(CLI::App& app, const CommandOption& option) {
    const std::string names = (option.letter == 0 ? "" : std::string("-") + option.letter + ",") + option.name;
    if (const auto* place = std::get_if<bool*>(&option.place)) {
        app.add_flag_function(names, [place = *place](std::int64_t) { *place = true; });
        return;
    }
    auto* added = app.add_option(names, [&option](const CLI::results_t& values) {
        std::visit(Setter{option.name, values}, option.place);
        return true;
    });
    if (std::holds_alternative<Words*>(option.place)) added->take_all();
}

/// Each word has a place of its own, which leaves it as it is: CLI11 takes lists in brackets apart.
void addWords(CLI::App& app, const Command& command, std::size_t mostWords, Words& found) {
    const auto collect = [&found](const CLI::results_t& values) {
        found.push_back(values.back());
        return true;
    };
    std::size_t places = 0;
    for (const CommandWord& word : command.wordPlaces())
        places += std::holds_alternative<Words*>(word.place) ? mostWords : 1;
    for (std::size_t i = 0; i < std::min(places, mostWords); ++i)
        app.add_option("word" + std::to_string(i), collect);
}

/// Gives each word its place; what is missing or too much, or nothing.
std::string placeWords(const Command& command, const Words& found) {
    auto next = found.begin();
    for (const CommandWord& word : command.wordPlaces()) {
        if (next == found.end()) {
            if (word.isRequired) return "its word " + word.placeholder + " is missing";
            break;
        }
        if (auto* const* many = std::get_if<Words*>(&word.place)) {
            (*many)->assign(next, found.end());
            next = found.end();
        } else {
            *std::get<std::string*>(word.place) = *next++;
        }
    }
    return {};
}

std::string extraWords(const CLI::App& app) {
    const Words extras = app.remaining();
    if (extras.empty()) return "too many words";
    return (extras[0].starts_with("-") ? "no option \"" : "one word too many: \"") + extras[0] + "\"";
}

/// An option without its value, or with one too many: "--host: 1 required NAME missing".
std::string valuesOf(std::string_view complaint) {
    const std::string name(complaint.substr(0, complaint.find(':')));
    return name + (complaint.ends_with("missing") ? ": its value is missing" : " is given twice");
}

/// Reads the words of one command; what is wrong with them, or nothing.
std::string readWords(const Command& command, Words words, Common& common) {
    CLI::App app;
    app.set_help_flag();
    app.add_flag_function("--json", [&common](std::int64_t) { common.json = true; });
    const CommandOption color{"--color", 0, "", "", ChoicePlace{&common.color, {"auto", "always", "never"}}};
    addOption(app, color);
    for (const CommandOption& option : command.options())
        addOption(app, option);
    Words found;
    addWords(app, command, words.size(), found);
    std::reverse(words.begin(), words.end());
    try {
        app.parse(std::move(words));
    } catch (const CLI::ExtrasError&) {
        return extraWords(app);
    } catch (const CLI::ArgumentMismatch& error) {
        return valuesOf(error.what());
    } catch (const CLI::ParseError& error) {
        return error.what();
    }
    return placeWords(command, found);
}

/// What is wrong with words that name a group of commands and not one of them.
std::string whatCommand(const Command& group, const Words& words) {
    Words names;
    for (const Command& command : group.commands()) {
        if (!command.isHidden()) names.push_back(command.name());
    }
    const auto word =
        std::find_if(words.begin(), words.end(), [](const auto& each) { return !each.starts_with("-"); });
    return (word == words.end() ? "expected a command: " : "no command \"" + *word + "\"; expected ") +
           listOf(names);
}

/// Wherever it stands, whatever is wrong with the other words.
bool asksForHelp(const Words& words) {
    const auto end = std::find(words.begin(), words.end(), "--");
    return std::find(words.begin(), end, "--help") != end;
}

int runCommand(const Command& command, const Common& common) {
    const ColourWish wish = common.color == "always"  ? ColourWish::kAlways
                            : common.color == "never" ? ColourWish::kNever
                                                      : ColourWish::kAuto;
    return command.action()({common.json, terminalOf(STDOUT_FILENO, wish), terminalOf(STDERR_FILENO, wish)});
}

}  // namespace

int runCommandLine(const Command& root, const std::vector<std::string>& words) {
    Words left = words;
    const std::vector<const Command*> path = takeCommandPath(root, left);
    const Command& command = *path.back();
    Common common;
    if (command.passesOn()) {
        *std::get<Words*>(command.wordPlaces().front().place) = std::move(left);
        return runCommand(command, common);
    }
    if (asksForHelp(left)) return endOfOutput(say(commandHelp(path)));
    const std::string wrong =
        command.action() ? readWords(command, std::move(left), common) : whatCommand(command, left);
    if (!wrong.empty()) return complain(EX_USAGE, wrong + "; " + commandName(path) + " --help says more");
    return runCommand(command, common);
}

}  // namespace ombrel
