// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/veskcore/settings_text.h"

#include <algorithm>
#include <unordered_set>

#include "linux/common/error_record.h"

namespace ombrel {
namespace {

enum class OtherKeys { kKeep, kDrop };

bool canHoldAll(const LineFormat& format, const VLIBSZHASH& keys) {
    return std::all_of(keys.pairs().begin(), keys.pairs().end(),
                       [&](const VLIBSZHASH::Pair& pair) { return format.canHold(pair.first, pair.second); });
}

/// Adds `line` to `text`, whose last line may lack its end.
void appendLine(std::string& text, std::string_view line) {
    if (!text.empty() && text.back() != '\n') text += '\n';
    text += line;
}

std::string merged(std::string_view text, const VLIBSZHASH& keys, const LineFormat& format, OtherKeys others) {
    std::string result;
    std::unordered_set<std::string_view> written;
    for (LineReader reader(text); reader.next();) {
        const std::optional<KeyValue> pair = parseKeyValue(reader.text());
        const std::string* value = pair ? keys.find(pair->key) : nullptr;
        if (value != nullptr && written.insert(pair->key).second) {
            result += format.render(pair->key, *value);
        } else if (!pair || others == OtherKeys::kKeep) {
            result += reader.whole();
        }
    }
    for (const auto& [key, value] : keys.pairs()) {
        if (!written.contains(key)) appendLine(result, format.render(key, value));
    }
    return result;
}

std::string headerLine(std::string_view section) {
    return "[" + std::string(section) + "]\n";
}

/// The places of all sections of that name.
std::vector<Section> placesOf(std::string_view text, std::string_view section) {
    std::vector<Section> places = sectionsOf(text);
    std::erase_if(places, [&](const Section& place) { return place.name != section; });
    return places;
}

/// `text` with `first` in place of the first of `places` and without the others.
std::string spliced(std::string_view text, const std::vector<Section>& places, std::string_view first) {
    std::string result(text.substr(0, places.front().begin));
    result += first;
    std::size_t done = places.front().bodyEnd;
    for (auto place = places.begin() + 1; place != places.end(); ++place) {
        result += text.substr(done, place->begin - done);
        done = place->bodyEnd;
    }
    const std::string_view rest = text.substr(done);
    if (!rest.empty() && !result.empty() && result.back() != '\n') result += '\n';
    return result.append(rest);
}

}  // namespace

std::optional<std::string_view> valueOf(std::string_view text, std::string_view key) {
    for (LineReader reader(text); reader.next();) {
        const std::optional<KeyValue> pair = parseKeyValue(reader.text());
        if (pair && pair->key == key) return pair->value;
    }
    return std::nullopt;
}

Edited withKeys(std::string_view text, const VLIBSZHASH& keys, const LineFormat& format) {
    if (!canHoldAll(format, keys)) return {kErrorForbiddenText, {}};
    return {0, merged(text, keys, format, OtherKeys::kKeep)};
}

std::vector<Section> sectionsOf(std::string_view text) {
    std::vector<Section> sections;
    for (LineReader reader(text); reader.next();) {
        const auto begin = static_cast<std::size_t>(reader.whole().data() - text.data());
        const std::size_t end = begin + reader.whole().size();
        if (const std::optional<std::string_view> name = parseHeader(reader.text())) {
            sections.push_back({*name, begin, end, end});
        } else if (!sections.empty() && !saysNothing(reader.text())) {
            sections.back().bodyEnd = end;
        }
    }
    return sections;
}

// Looks no further than the section: whoever reads thousands of them reads each by itself.
std::optional<std::string_view> bodyOf(std::string_view text, std::string_view section) {
    std::optional<std::string_view> body;
    std::size_t begin = 0;
    for (LineReader reader(text); reader.next();) {
        const std::optional<std::string_view> name = parseHeader(reader.text());
        if (name && body) break;
        const auto end = static_cast<std::size_t>(reader.whole().data() - text.data()) + reader.whole().size();
        if (name == section) {
            begin = end;
            body = text.substr(begin, 0);
        }
        if (!name && body && !saysNothing(reader.text())) body = text.substr(begin, end - begin);
    }
    return body;
}

Edited withSection(std::string_view text, std::string_view section, const VLIBSZHASH& keys,
                   const LineFormat& format) {
    if (!isSectionName(section) || !canHoldAll(format, keys)) return {kErrorForbiddenText, {}};
    if (bodyOf(text, section)) return {kErrorExists, {}};
    std::string result(text);
    appendLine(result, headerLine(section));
    return {0, result + merged({}, keys, format, OtherKeys::kDrop)};
}

Edited withSectionReplaced(std::string_view text, std::string_view oldSection, std::string_view newSection,
                           const VLIBSZHASH& keys, const LineFormat& format) {
    if (!isSectionName(newSection) || !canHoldAll(format, keys)) return {kErrorForbiddenText, {}};
    const std::vector<Section> places = placesOf(text, oldSection);
    if (places.empty()) return {kErrorNotFound, {}};
    const Section& place = places.front();
    std::string header(text.substr(place.begin, place.bodyBegin - place.begin));
    if (newSection != oldSection) {
        if (bodyOf(text, newSection)) return {kErrorExists, {}};
        header = headerLine(newSection);
    }
    const std::string_view body = text.substr(place.bodyBegin, place.bodyEnd - place.bodyBegin);
    const std::string newBody = merged(body, keys, format, OtherKeys::kDrop);
    if (!newBody.empty()) appendLine(header, newBody);
    return {0, spliced(text, places, header)};
}

Edited withoutSection(std::string_view text, std::string_view section) {
    const std::vector<Section> places = placesOf(text, section);
    if (places.empty()) return {kErrorNotFound, {}};
    return {0, spliced(text, places, {})};
}

Edited withSectionKeys(std::string_view text, std::string_view section, const VLIBSZHASH& keys,
                       const LineFormat& format) {
    const std::optional<std::string_view> body = bodyOf(text, section);
    if (!body) return withSection(text, section, keys, format);
    if (!canHoldAll(format, keys)) return {kErrorForbiddenText, {}};
    const auto begin = static_cast<std::size_t>(body->data() - text.data());
    std::string result(text.substr(0, begin));
    const std::string newBody = merged(*body, keys, format, OtherKeys::kKeep);
    if (!newBody.empty()) appendLine(result, newBody);
    return {0, result.append(text.substr(begin + body->size()))};
}

}  // namespace ombrel
