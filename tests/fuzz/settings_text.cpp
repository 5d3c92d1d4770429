// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Settings texts of any bytes: reading them is harmless, and a change does what it says and nothing else.
// An input is five texts parted by the byte 0xFE: key, value, section, another section, and the file.
#include "linux/veskcore/settings_text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "linux/common/error_record.h"

using namespace ombrel;

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

std::array<std::string, 5> partsOf(std::string_view input) {
    std::array<std::string, 5> parts;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const std::size_t end = i + 1 < parts.size() ? input.find('\xFE') : std::string_view::npos;
        parts[i] = input.substr(0, end);
        input.remove_prefix(end == std::string_view::npos ? input.size() : end + 1);
    }
    return parts;
}

/// The lines that say nothing about `key`, without their line ends.
std::vector<std::string> otherLines(std::string_view text, std::string_view key) {
    std::vector<std::string> lines;
    for (LineReader reader(text); reader.next();) {
        const auto pair = parseKeyValue(reader.text());
        if (pair && pair->key == key) continue;
        std::string line(reader.whole());
        if (line.ends_with('\n')) line.pop_back();
        lines.push_back(std::move(line));
    }
    return lines;
}

std::vector<std::string> namesOf(std::string_view text) {
    std::vector<std::string> names;
    for (const Section& section : sectionsOf(text))
        names.emplace_back(section.name);
    return names;
}

void checkLines(std::string_view text) {
    std::string joined;
    for (LineReader reader(text); reader.next();)
        joined += reader.whole();
    require(joined == text);
}

void checkKeys(const std::string& text, const std::string& key, const std::string& value, const VLIBSZHASH& keys,
               const LineFormat& format) {
    const Edited edited = withKeys(text, keys, format);
    if (edited.error != 0) {
        require(edited.error == kErrorForbiddenText && !format.canHold(key, value));
        return;
    }
    require(valueOf(edited.text, key) == value);
    require(otherLines(edited.text, key) == otherLines(text, key));
    require(withKeys(edited.text, keys, format).text == edited.text);
    require(namesOf(edited.text) == namesOf(text));
}

void checkAddAndRemove(const std::string& text, const std::string& section, const VLIBSZHASH& keys,
                       const LineFormat& format) {
    const Edited added = withSection(text, section, keys, format);
    const std::vector<std::string> before = namesOf(text);
    const bool taken = std::find(before.begin(), before.end(), section) != before.end();
    if (added.error != 0) {
        require(added.error == kErrorForbiddenText || taken);
    } else {
        require(!taken && bodyOf(added.text, section).has_value());
        const std::string removed = withoutSection(added.text, section).text;
        require(removed == text || removed == text + "\n");
    }
    const Edited removed = withoutSection(text, section);
    require((removed.error == 0) == taken);
    if (taken) require(!bodyOf(removed.text, section));
}

void checkReplace(const std::string& text, const std::array<std::string, 5>& parts, const VLIBSZHASH& keys,
                  const LineFormat& format) {
    const Edited replaced = withSectionReplaced(text, parts[2], parts[3], keys, format);
    if (replaced.error != 0) return;
    require(bodyOf(replaced.text, parts[3]).has_value());
    require(valueOf(*bodyOf(replaced.text, parts[3]), parts[0]) == parts[1]);
    require(parts[2] == parts[3] || !bodyOf(replaced.text, parts[2]));
    std::vector<std::string> expected;
    bool first = true;
    for (const std::string& name : namesOf(text)) {
        if (name != parts[2]) expected.push_back(name);
        if (name == parts[2] && first) expected.push_back(parts[3]);
        first = first && name != parts[2];
    }
    require(namesOf(replaced.text) == expected);
}

void checkSectionValue(const std::string& text, const std::array<std::string, 5>& parts, const VLIBSZHASH& keys,
                       const LineFormat& format) {
    const Edited edited = withSectionKeys(text, parts[2], keys, format);
    if (edited.error != 0) return;
    const auto body = bodyOf(edited.text, parts[2]);
    require(body && valueOf(*body, parts[0]) == parts[1]);
    for (const Section& section : sectionsOf(text)) {
        if (section.name == parts[2]) continue;
        const std::string_view before = bodyOf(text, section.name).value();
        const std::string_view after = bodyOf(edited.text, section.name).value();
        require(after == before || after == std::string(before) + "\n");  // a last line gets its end
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto parts = partsOf({reinterpret_cast<const char*>(data), size});
    const std::string& text = parts[4];
    VLIBSZHASH keys;
    keys.set(parts[0], parts[1]);
    checkLines(text);
    for (const char* pattern : {"%s=\"%s\"\n", "%s=%s\n"}) {
        const LineFormat format = LineFormat::parse(pattern).value();
        checkKeys(text, parts[0], parts[1], keys, format);
        checkAddAndRemove(text, parts[2], keys, format);
        checkReplace(text, parts, keys, format);
        checkSectionValue(text, parts, keys, format);
    }
    (void)LineFormat::parse(parts[1]);  // any text is harmless as a format
    return 0;
}
