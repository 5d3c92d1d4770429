// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/command.h"

#include <algorithm>
#include <utility>

namespace ombrel {

namespace {

const Command* findCommand(const Command& group, const std::string& name) {
    const auto found = std::find_if(group.commands().begin(), group.commands().end(),
                                    [&name](const Command& command) { return command.name() == name; });
    return found == group.commands().end() ? nullptr : &*found;
}

}  // namespace

Command& Command::add(std::string name, std::string summary) {
    return commands_.emplace_back(std::move(name), std::move(summary));
}

Command& Command::flag(std::string name, bool& value, std::string help, char letter) {
    options_.push_back({std::move(name), letter, "", std::move(help), &value});
    return *this;
}

Command& Command::text(std::string name, std::string placeholder, std::string& value, std::string help) {
    options_.push_back({std::move(name), 0, std::move(placeholder), std::move(help), &value});
    return *this;
}

Command& Command::texts(std::string name, std::string placeholder, std::vector<std::string>& values,
                        std::string help) {
    options_.push_back({std::move(name), 0, std::move(placeholder), std::move(help), &values});
    return *this;
}

Command& Command::number(std::string name, std::string placeholder, NumberPlace place, std::string help,
                         char letter) {
    options_.push_back({std::move(name), letter, std::move(placeholder), std::move(help), place});
    return *this;
}

Command& Command::choice(std::string name, ChoicePlace place, std::string help) {
    std::string placeholder;
    for (const std::string& word : place.allowed)
        placeholder += (placeholder.empty() ? "" : "|") + word;
    options_.push_back({std::move(name), 0, std::move(placeholder), std::move(help), std::move(place)});
    return *this;
}

Command& Command::word(std::string placeholder, std::string& value, std::string help, WordKind kind) {
    words_.push_back({std::move(placeholder), std::move(help), &value, true, kind});
    return *this;
}

Command& Command::optionalWord(std::string placeholder, std::string& value, std::string help, WordKind kind) {
    words_.push_back({std::move(placeholder), std::move(help), &value, false, kind});
    return *this;
}

Command& Command::words(std::string placeholder, std::vector<std::string>& values, std::string help,
                        bool isRequired, WordKind kind) {
    words_.push_back({std::move(placeholder), std::move(help), &values, isRequired, kind});
    return *this;
}

Command& Command::passOn(std::string placeholder, std::vector<std::string>& values) {
    passesOn_ = true;
    return words(std::move(placeholder), values, "", false, WordKind::kPath);
}

Command& Command::describe(std::string text) {
    description_ = std::move(text);
    return *this;
}

Command& Command::example(std::string line) {
    examples_.push_back(std::move(line));
    return *this;
}

Command& Command::exitCode(int code, std::string meaning) {
    exitCodes_.emplace_back(code, std::move(meaning));
    return *this;
}

Command& Command::run(CommandAction action) {
    action_ = std::move(action);
    return *this;
}

Command& Command::hide() {
    isHidden_ = true;
    return *this;
}

std::string commandName(const std::vector<const Command*>& path) {
    std::string name;
    for (const Command* command : path)
        name += (name.empty() ? "" : " ") + command->name();
    return name;
}

std::vector<const Command*> takeCommandPath(const Command& root, std::vector<std::string>& words) {
    std::vector<const Command*> path = {&root};
    auto word = words.begin();
    while (word != words.end() && !path.back()->passesOn()) {
        if (word->starts_with("-")) {  // an option of every command
            word += *word == "--color" && word + 1 != words.end() ? 2 : 1;
            continue;
        }
        const Command* next = findCommand(*path.back(), *word);
        if (next == nullptr) break;
        path.push_back(next);
        word = words.erase(word);
    }
    return path;
}

}  // namespace ombrel
