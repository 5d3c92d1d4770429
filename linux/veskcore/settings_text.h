// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Questions to and changes of the text of a settings file. Pure: text in, text out.
// Every line that a change does not replace or remove is kept byte for byte. Of a key or section that
// stands in a file more than once the first counts, for readers and for changes alike.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "linux/veskcore/settings_line.h"
#include "linux/veskcore/string_hash.h"

namespace ombrel {

/// What a change came to: the new text, or a code of error_record.h.
struct Edited {
    int error = 0;
    std::string text;
};

/// Where a section stands in its text. Comments and blank lines behind its last key belong to what
/// follows: they stay when the section goes.
struct Section {
    std::string_view name;
    std::size_t begin = 0;      ///< of the header line
    std::size_t bodyBegin = 0;  ///< behind the header line
    std::size_t bodyEnd = 0;    ///< behind the last line that says something
};

// A text of keys, such as a whole file or the body of a section.
std::optional<std::string_view> valueOf(std::string_view text, std::string_view key);
Edited withKeys(std::string_view text, const VLIBSZHASH& keys, const LineFormat& format);

// A text of sections.
std::vector<Section> sectionsOf(std::string_view text);
/// The keys of a section; nothing when it is absent.
std::optional<std::string_view> bodyOf(std::string_view text, std::string_view section);
Edited withSection(std::string_view text, std::string_view section, const VLIBSZHASH& keys,
                   const LineFormat& format);
Edited withSectionReplaced(std::string_view text, std::string_view oldSection, std::string_view newSection,
                           const VLIBSZHASH& keys, const LineFormat& format);
Edited withoutSection(std::string_view text, std::string_view section);
/// Merges `keys` into a section, which is made when it is absent.
Edited withSectionKeys(std::string_view text, std::string_view section, const VLIBSZHASH& keys,
                       const LineFormat& format);

}  // namespace ombrel
