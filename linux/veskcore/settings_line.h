// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// One line of a settings file: how it is read and how it is written. Pure text, no files.
//
//   key="value"     blanks around the equals sign, missing quotes and a leading byte-order mark are read;
//                   a quoted value ends at the last quote of its line, so it may hold quotes
//   [name]          a section header; the name is everything up to the first "]"
//   # anything      a comment; it and blank lines say nothing
//
// Lines end with LF or CRLF. Anything else is junk, which is passed over and kept.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace ombrel {

/// Cuts a text into its lines.
class LineReader {
public:
    explicit LineReader(std::string_view text) : rest_(text) {}

    /// False at the end of the text.
    bool next();
    /// The line with its line end; all of them together are the text.
    [[nodiscard]] std::string_view whole() const { return whole_; }
    /// The line without its line end and without blanks at either end.
    [[nodiscard]] std::string_view text() const { return text_; }

private:
    std::string_view rest_;
    std::string_view whole_;
    std::string_view text_;
};

struct KeyValue {
    std::string_view key;
    std::string_view value;
};

/// These take a line as LineReader::text() delivers it.
std::optional<KeyValue> parseKeyValue(std::string_view line);
std::optional<std::string_view> parseHeader(std::string_view line);
bool saysNothing(std::string_view line);  ///< blank or a comment

/// A printf format with exactly two %s, the key and the value, for one line. Rendered by hand, since the
/// format comes from the caller: nothing but %s and %% is understood.
class LineFormat {
public:
    /// Nothing when `format` is not of this kind.
    static std::optional<LineFormat> parse(std::string_view format);
    /// The line, always ended by LF.
    [[nodiscard]] std::string render(std::string_view key, std::string_view value) const;
    /// Whether the pair, once written, reads back as it is. Line breaks and NUL never do.
    [[nodiscard]] bool canHold(std::string_view key, std::string_view value) const;

private:
    std::string before_;
    std::string between_;
    std::string after_;
};

/// A port declaration has no room for a longer name, so that a longer section could never be withdrawn there.
inline constexpr std::size_t kMostSectionName = 255;

/// Whether a section may be given this name: 1 to kMostSectionName bytes without a line break, NUL or "]". What
/// stands in a file already is read, changed and removed whatever its length.
bool isSectionName(std::string_view name);

}  // namespace ombrel
