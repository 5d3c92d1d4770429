// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/vesksdk/share_definitions.h"

#include <clocale>
#include <cstdlib>
#include <cwctype>
#include <optional>

#include "linux/common/trimmed.h"

namespace ombrel {

namespace {

/// Calls `take` with every line of the text, without blanks at either end.
template <typename Take>
void eachLine(std::string_view text, Take take) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        take(trimmed(text.substr(0, end)));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

struct Parameter {
    std::string_view name;
    std::string_view value;
};

std::optional<Parameter> parameterIn(std::string_view line) {
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) return std::nullopt;
    return Parameter{trimmed(line.substr(0, equals)), trimmed(line.substr(equals + 1))};
}

/// Samba allows a path in quotes; "/srv/logs/" and "/srv/logs" are one folder.
std::string plainPath(std::string_view path) {
    if (path.size() >= 2 && path.front() == '"' && path.back() == '"') path = path.substr(1, path.size() - 2);
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return std::string(path);
}

bool isFolderPath(std::string_view path) {
    return path.starts_with('/') && path.find('%') == std::string_view::npos;
}

/// Sections that Samba itself gives a meaning; none is a folder to keep logs in.
bool isReserved(std::string_view name) {
    for (const std::string_view reserved : {"global", "homes", "printers", "print$", "IPC$"}) {
        if (sameShareName(name, reserved)) return true;
    }
    return false;
}

/// A section while it is read.
struct Section {
    std::string name;
    std::string path;
    bool available = true;
    bool printable = false;

    void take(const Parameter& parameter) {
        if (parameter.name == "path") path = plainPath(parameter.value);
        if (parameter.name == "available") available = parameter.value != "No";
        if (parameter.name == "printable") printable = parameter.value == "Yes";
    }
    [[nodiscard]] bool isShare() const {
        return !name.empty() && !isReserved(name) && available && !printable && isFolderPath(path);
    }
};

/// The next character of a UTF-8 text, which is shortened by it; a byte that is none stands for itself,
/// beyond all characters.
char32_t takeCharacter(std::string_view& text) {
    const auto first = static_cast<unsigned char>(text.front());
    const std::size_t length = first < 0x80 ? 1 : first < 0xc2 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
    char32_t character = length == 1 ? first : first & (0xffU >> (length + 1));
    bool valid = length > 0 && first < 0xf5 && text.size() >= length;
    for (std::size_t i = 1; valid && i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        valid = (next & 0xc0U) == 0x80;
        character = character << 6U | (next & 0x3fU);
    }
    text.remove_prefix(valid ? length : 1);
    return valid ? character : 0x110000U + first;
}

char32_t withoutCase(char32_t character) {
    // The caller's locale may know no letters but ASCII; this one is part of the C library.
    static const locale_t unicode = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (character >= 'A' && character <= 'Z') return character + ('a' - 'A');
    if (character < 0x80 || character > 0x10ffff || unicode == nullptr) return character;
    return static_cast<char32_t>(::towlower_l(static_cast<wint_t>(character), unicode));
}

}  // namespace

ShareDefinitions parseDefinitions(std::string_view text) {
    ShareDefinitions result;
    Section section;
    const auto finish = [&] {
        if (section.isShare()) result.shares.push_back({section.name, section.path});
    };
    eachLine(text, [&](std::string_view line) {
        if (line.starts_with('[') && line.ends_with(']')) {
            finish();
            section = {};
            section.name = line.substr(1, line.size() - 2);
        } else if (const auto parameter = parameterIn(line)) {
            if (section.name == "global") result.global.emplace(parameter->name, parameter->value);
            section.take(*parameter);
        }
    });
    finish();
    return result;
}

Share parseUserShare(std::string_view fileName, std::string_view text) {
    Share share{std::string(fileName), ""};
    eachLine(text, [&](std::string_view line) {
        const auto parameter = parameterIn(line);
        if (!parameter) return;
        if (parameter->name == "path") share.path = plainPath(parameter->value);
        // A file can give its share another case, never another name.
        if (parameter->name == "sharename" && sameShareName(parameter->value, fileName))
            share.name = parameter->value;
    });
    if (!isFolderPath(share.path) || isReserved(share.name)) return {};
    return share;
}

bool sameShareName(std::string_view a, std::string_view b) {
    while (!a.empty() && !b.empty()) {
        if (withoutCase(takeCharacter(a)) != withoutCase(takeCharacter(b))) return false;
    }
    return a.empty() && b.empty();
}

}  // namespace ombrel
