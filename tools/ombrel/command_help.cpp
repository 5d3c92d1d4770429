// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include <algorithm>

#include "tools/ombrel/command.h"

namespace ombrel {

namespace {

constexpr std::size_t kWidth = 100;
constexpr std::size_t kWidestName = 26;  // a longer one has its help on the next line

/// Words of `text` in lines of at most kWidth columns, all but the first behind `indent` blanks.
std::string wrapped(const std::string& text, std::size_t column, std::size_t indent) {
    std::string lines;
    std::size_t at = column;
    std::size_t from = 0;
    while (from < text.size()) {
        const std::size_t to = std::min(text.find(' ', from), text.size());
        if (at > indent && at + (to - from) > kWidth) {
            while (!lines.empty() && lines.back() == ' ')
                lines.pop_back();
            lines += '\n' + std::string(indent, ' ');
            at = indent;
        }
        lines.append(text, from, to - from);
        at += to - from;
        if (to < text.size()) {
            lines += ' ';
            ++at;
        }
        from = to + 1;
    }
    return lines + '\n';
}

/// "  NAME    HELP", all helps of a list below each other.
std::string entry(const std::string& name, const std::string& help, std::size_t width) {
    std::string line = "  " + name;
    const std::size_t indent = width + 4;
    if (name.size() > width) {
        line += '\n' + std::string(indent, ' ');
    } else {
        line += std::string(indent - line.size(), ' ');
    }
    return help.empty() ? "  " + name + '\n' : line + wrapped(help, indent, indent);
}

using Entries = std::vector<std::pair<std::string, std::string>>;

std::string listed(const char* head, const Entries& entries) {
    if (entries.empty()) return {};
    std::size_t width = 0;
    for (const auto& [name, help] : entries) {
        if (name.size() <= kWidestName) width = std::max(width, name.size());
    }
    std::string text = std::string(head) + ":\n";
    for (const auto& [name, help] : entries)
        text += entry(name, help, width);
    return text;
}

std::string wordShown(const CommandWord& word) {
    const bool isMany = std::holds_alternative<std::vector<std::string>*>(word.place);
    const std::string name = word.placeholder + (isMany ? "..." : "");
    return word.isRequired ? name : "[" + name + "]";
}

std::string usage(const std::vector<const Command*>& path) {
    const Command& command = *path.back();
    std::string text = "usage: " + commandName(path);
    if (!command.action()) return text + " COMMAND ...\n";
    if (!command.options().empty()) text += " [OPTION...]";
    for (const CommandWord& word : command.wordPlaces())
        text += " " + wordShown(word);
    if (!command.commands().empty()) text += " | COMMAND ...";
    return wrapped(text, 0, 7);
}

Entries optionEntries(const Command& command) {
    Entries entries;
    for (const CommandOption& option : command.options()) {
        std::string name = option.letter == 0 ? "" : std::string("-") + option.letter + ", ";
        name += option.name + (option.placeholder.empty() ? "" : " " + option.placeholder);
        entries.emplace_back(std::move(name), option.help);
    }
    return entries;
}

Entries commandEntries(const Command& command) {
    Entries entries;
    for (const Command& sub : command.commands()) {
        if (!sub.isHidden()) entries.emplace_back(sub.name(), sub.summary());
    }
    return entries;
}

Entries wordEntries(const Command& command) {
    Entries entries;
    for (const CommandWord& word : command.wordPlaces()) {
        if (!word.help.empty()) entries.emplace_back(word.placeholder, word.help);
    }
    return entries;
}

const char* usualMeaning(int code) {
    switch (code) {
        case 0:
            return "done";
        case 1:
            return "something failed";
        case 64:
            return "wrong words; nothing was done";
        case 77:
            return "a right is missing";
        default:
            return "the settings cannot be read";
    }
}

Entries exitCodeEntries(const Command& command) {
    Entries entries;
    std::vector<std::pair<int, std::string>> codes = command.exitCodes();
    for (const int usual : {0, 1, 64, 77, 78}) {
        if (std::none_of(codes.begin(), codes.end(), [usual](const auto& code) { return code.first == usual; })) {
            codes.emplace_back(usual, usualMeaning(usual));
        }
    }
    std::sort(codes.begin(), codes.end());
    for (const auto& [code, meaning] : codes)
        entries.emplace_back(std::to_string(code), meaning);
    return entries;
}

}  // namespace

std::string commandHelp(const std::vector<const Command*>& path) {
    const Command& command = *path.back();
    std::string text = usage(path) + wrapped(command.summary(), 0, 0);
    if (!command.description().empty()) text += '\n' + wrapped(command.description(), 0, 0);
    std::vector<std::string> parts = {listed("Commands", commandEntries(command)),
                                      listed("Words", wordEntries(command)),
                                      listed("Options", optionEntries(command))};
    parts.push_back(
        listed("Options of every command", {{"--json", "the answer as JSON, one document a line"},
                                            {"--color auto|always|never", "colours; auto: on a terminal alone"},
                                            {"--help", "this text"}}));
    std::string examples;
    for (const std::string& line : command.examples())
        examples += (examples.empty() ? "Examples:\n  " : "  ") + line + '\n';
    parts.push_back(std::move(examples));
    if (command.action()) parts.push_back(listed("Exit codes", exitCodeEntries(command)));
    for (const std::string& part : parts) {
        if (!part.empty()) text += '\n' + part;
    }
    return text;
}

}  // namespace ombrel
