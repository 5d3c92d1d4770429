// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Key/value and sectioned files as texts: functions from text to text, without any file.
// A line is key="value"; blanks around the equals sign, missing quotes, comments and blank lines are read.
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ombrel::test {

/// Each key once, in the order in which they were given.
class KeyValues {
public:
    using Pair = std::pair<std::string, std::string>;

    KeyValues() = default;
    KeyValues(std::initializer_list<Pair> pairs) : pairs_(pairs) {}
    void set(const std::string& key, const std::string& value);
    [[nodiscard]] const std::string* find(const std::string& key) const;
    [[nodiscard]] int size() const { return static_cast<int>(pairs_.size()); }
    [[nodiscard]] auto begin() const { return pairs_.begin(); }
    [[nodiscard]] auto end() const { return pairs_.end(); }

private:
    std::vector<Pair> pairs_;
};

/// The key and the value of one line; nothing for a comment, a section head or any other line.
std::optional<std::pair<std::string, std::string>> parseLine(const std::string& line);
std::optional<std::string> valueOf(const std::string& text, const std::string& key);
/// Replaces the lines of the keys, appends those that are missing, keeps all others.
std::string withKeys(const std::string& text, const KeyValues& keys, const char* format);

/// Whether a value or section name can stand in a file, and whether a key can.
bool isStorable(const std::string& text);
bool isStorableKey(const std::string& key);

struct Section {
    std::string name;
    std::vector<std::string> lines;  ///< without their line ends
    [[nodiscard]] KeyValues keys() const;
};

/// A sectioned file: what stands before the first section, then the sections in order.
struct SectionedText {
    explicit SectionedText(const std::string& text);
    [[nodiscard]] std::string text() const;
    [[nodiscard]] Section* find(const std::string& name);

    std::vector<std::string> head;
    std::vector<Section> sections;
};

/// A line format holds exactly two places, both %s.
bool isLineFormat(const char* format);
std::string formatLine(const char* format, const std::string& key, const std::string& value);

}  // namespace ombrel::test
