// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Words KEY=VALUE, each applied to a record by the field of that name. Pure.
#pragma once

#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace ombrel {

/// Changes the record as the words say. Nothing, or what is wrong with the first wrong word; the words before it
/// have been applied then.
/// @param find     the field of a name, or null; a field has `parse` and `allowed`
/// @param unknown  what to say of a name without a field: "no KIND", and behind the name where to look
template <typename Find, typename Record>
std::optional<std::string> applyKeyValues(std::span<const std::string> words, Find find,
                                          const std::pair<const char*, const char*>& unknown, Record& record) {
    std::set<std::string_view> seen;
    for (const std::string_view word : words) {
        const auto equals = word.find('=');
        if (equals == std::string_view::npos) return "\"" + std::string(word) + "\" is not KEY=VALUE";
        const std::string key(word.substr(0, equals));
        const std::string_view value = word.substr(equals + 1);
        const auto* field = find(key);
        if (field == nullptr) return unknown.first + (" \"" + key + "\"; ") + unknown.second;
        if (!seen.insert(word.substr(0, equals)).second) return key + " is given twice";
        if (!field->parse(value, record)) {
            return key + "=\"" + std::string(value) + "\": expected " + field->allowed;
        }
    }
    return std::nullopt;
}

}  // namespace ombrel
