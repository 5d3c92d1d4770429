// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tests/fake/settings_text.h"

#include <algorithm>
#include <set>
#include <sstream>

namespace ombrel::test {

namespace {

std::string trimmed(const std::string& text) {
    const auto from = text.find_first_not_of(" \t\r");
    if (from == std::string::npos) return "";
    return text.substr(from, text.find_last_not_of(" \t\r") - from + 1);
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

std::string withoutLineEnd(std::string line) {
    if (!line.empty() && line.back() == '\n') line.pop_back();
    return line;
}

}  // namespace

void KeyValues::set(const std::string& key, const std::string& value) {
    for (Pair& pair : pairs_) {
        if (pair.first != key) continue;
        pair.second = value;
        return;
    }
    pairs_.emplace_back(key, value);
}

const std::string* KeyValues::find(const std::string& key) const {
    for (const Pair& pair : pairs_) {
        if (pair.first == key) return &pair.second;
    }
    return nullptr;
}

std::optional<std::pair<std::string, std::string>> parseLine(const std::string& line) {
    const std::string content = trimmed(line);
    if (content.empty() || content.front() == '#' || content.front() == '[') return std::nullopt;
    const auto equals = content.find('=');
    if (equals == std::string::npos) return std::nullopt;
    const std::string key = trimmed(content.substr(0, equals));
    std::string value = trimmed(content.substr(equals + 1));
    if (!value.empty() && value.front() == '"') {
        const auto last = value.rfind('"');
        value = last == 0 ? value.substr(1) : value.substr(1, last - 1);
    }
    return std::make_pair(key, value);
}

std::optional<std::string> valueOf(const std::string& text, const std::string& key) {
    for (const std::string& line : linesOf(text)) {
        const auto pair = parseLine(line);
        if (pair && pair->first == key) return pair->second;
    }
    return std::nullopt;
}

bool isLineFormat(const char* format) {
    const std::string pattern = format;
    const auto first = pattern.find('%');
    if (first == std::string::npos || pattern.compare(first, 2, "%s") != 0) return false;
    const auto second = pattern.find('%', first + 2);
    if (second == std::string::npos || pattern.compare(second, 2, "%s") != 0) return false;
    return pattern.find('%', second + 2) == std::string::npos;
}

std::string formatLine(const char* format, const std::string& key, const std::string& value) {
    const std::string pattern = format;
    const auto first = pattern.find("%s");
    const auto second = pattern.find("%s", first + 2);
    return pattern.substr(0, first) + key + pattern.substr(first + 2, second - first - 2) + value +
           pattern.substr(second + 2);
}

std::string withKeys(const std::string& text, const KeyValues& keys, const char* format) {
    std::string out;
    std::set<std::string> written;
    for (const std::string& line : linesOf(text)) {
        const auto pair = parseLine(line);
        const std::string* value = pair ? keys.find(pair->first) : nullptr;
        if (value == nullptr) {
            out += line + "\n";
        } else if (written.insert(pair->first).second) {
            out += formatLine(format, pair->first, *value);
        }
    }
    for (const auto& [key, value] : keys) {
        if (written.count(key) == 0) out += formatLine(format, key, value);
    }
    return out;
}

bool isStorable(const std::string& text) {
    return text.find_first_of("\r\n") == std::string::npos;
}

bool isStorableKey(const std::string& key) {
    return !key.empty() && isStorable(key) && key.find('=') == std::string::npos;
}

KeyValues Section::keys() const {
    KeyValues found;
    for (const std::string& line : lines) {
        const auto pair = parseLine(line);
        if (pair && found.find(pair->first) == nullptr) found.set(pair->first, pair->second);
    }
    return found;
}

SectionedText::SectionedText(const std::string& text) {
    for (const std::string& line : linesOf(text)) {
        const std::string content = trimmed(line);
        if (content.size() >= 2 && content.front() == '[' && content.back() == ']') {
            sections.push_back({content.substr(1, content.size() - 2), {}});
        } else if (sections.empty()) {
            head.push_back(line);
        } else {
            sections.back().lines.push_back(line);
        }
    }
}

std::string SectionedText::text() const {
    std::string out;
    for (const std::string& line : head)
        out += line + "\n";
    for (const Section& section : sections) {
        out += "[" + section.name + "]\n";
        for (const std::string& line : section.lines)
            out += withoutLineEnd(line) + "\n";
    }
    return out;
}

Section* SectionedText::find(const std::string& name) {
    const auto found = std::find_if(sections.begin(), sections.end(),
                                    [&name](const Section& section) { return section.name == name; });
    return found == sections.end() ? nullptr : &*found;
}

}  // namespace ombrel::test
