// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/completion.h"

#include <algorithm>

namespace ombrel {

namespace {

using Words = std::vector<std::string>;

struct Known {
    const char* name;
    const char* help;
};
constexpr Known kCommon[] = {
    {"--json", "the answer as JSON"}, {"--color", "auto, always or never"}, {"--help", "what can be said"}};

class Completer {
public:
    Completer(const Command& command, const NamesOfKind& namesOfKind, std::string typed)
        : command_(command), namesOfKind_(namesOfKind), typed_(std::move(typed)) {}

    Completion complete(const Words& before) {
        if (typed_.starts_with("--") && typed_.find('=') != std::string::npos) return valueInWord();
        if (!before.empty() && addValues(before.back())) return std::move(found_);
        if (typed_.starts_with("-")) {
            addOptions(before);
        } else if (!command_.commands().empty()) {
            addCommands();
        }
        if (!typed_.starts_with("-")) addWords(before);
        return std::move(found_);
    }

private:
    void add(const std::string& word, const std::string& help) {
        if (word.starts_with(typed_)) found_.candidates.push_back({word, help});
    }

    [[nodiscard]] const CommandOption* optionOf(const std::string& word) const {
        const auto& options = command_.options();
        const auto found = std::find_if(options.begin(), options.end(), [&word](const CommandOption& option) {
            return word == option.name || (option.letter != 0 && word == std::string("-") + option.letter);
        });
        return found == options.end() ? nullptr : &*found;
    }

    /// What may follow an option that wants a value; false when the word is none.
    bool addValues(const std::string& word) {
        if (word == "--color") {
            for (const char* each : {"auto", "always", "never"})
                add(each, "");
            return true;
        }
        const CommandOption* option = optionOf(word);
        if (option == nullptr || std::holds_alternative<bool*>(option->place)) return false;
        if (const auto* choice = std::get_if<ChoicePlace>(&option->place)) {
            for (const std::string& each : choice->allowed)
                add(each, "");
        } else {
            found_.files = option->placeholder == "FILE" || option->placeholder == "PATH";
        }
        return true;
    }

    /// "--format=js"
    Completion valueInWord() {
        const std::size_t equals = typed_.find('=');
        const std::string name = typed_.substr(0, equals);
        Completer value(command_, namesOfKind_, typed_.substr(equals + 1));
        (void)value.addValues(name);
        for (Candidate& candidate : value.found_.candidates)
            candidate.word = name + "=" + candidate.word;
        return std::move(value.found_);
    }

    void addOptions(const Words& before) {
        for (const CommandOption& option : command_.options()) {
            const bool isMany = std::holds_alternative<Words*>(option.place);
            const bool isGiven = std::find(before.begin(), before.end(), option.name) != before.end();
            if (isMany || !isGiven) add(option.name, option.help);
        }
        for (const Known& each : kCommon)
            add(each.name, each.help);
    }

    void addCommands() {
        for (const Command& sub : command_.commands()) {
            if (!sub.isHidden()) add(sub.name(), sub.summary());
        }
    }

    [[nodiscard]] std::size_t wordsIn(const Words& before) const {
        std::size_t count = 0;
        for (std::size_t i = 0; i < before.size(); ++i) {
            if (!before[i].starts_with("-")) {
                ++count;
            } else if (const CommandOption* option = optionOf(before[i]);
                       before[i] == "--color" ||
                       (option != nullptr && !std::holds_alternative<bool*>(option->place))) {
                ++i;
            }
        }
        return count;
    }

    void addWords(const Words& before) {
        const auto& places = command_.wordPlaces();
        if (places.empty()) return;
        const std::size_t index = wordsIn(before);
        if (index >= places.size() && !std::holds_alternative<Words*>(places.back().place)) return;
        const CommandWord& place = places[std::min(index, places.size() - 1)];
        if (place.kind == WordKind::kPath) found_.files = true;
        const bool isPair = place.placeholder.find('=') != std::string::npos;
        for (const std::string& name : namesOfKind_(place.kind))
            add(isPair ? name + "=" : name, "");
    }

    const Command& command_;
    const NamesOfKind& namesOfKind_;
    const std::string typed_;
    Completion found_;
};

}  // namespace

Completion completionOf(const Command& root, std::vector<std::string> words, const NamesOfKind& namesOfKind) {
    const std::string typed = words.empty() ? "" : words.back();
    if (!words.empty()) words.pop_back();
    const std::vector<const Command*> path = takeCommandPath(root, words);
    return Completer(*path.back(), namesOfKind, typed).complete(words);
}

}  // namespace ombrel
