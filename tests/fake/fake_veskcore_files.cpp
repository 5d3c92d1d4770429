// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Key/value and sectioned files of the fake platform.
#include <algorithm>
#include <cstring>

#include "platform/veskcore.h"
#include "tests/fake/fake_objects.h"
#include "tests/fake/fake_platform.h"
#include "tests/fake/settings_text.h"

using ombrel::test::FakePlatform;
using ombrel::test::KeyValues;
using ombrel::test::Section;
using ombrel::test::SectionedText;

namespace {

constexpr int kInvalidArgument = 0x0201;
constexpr int kForbiddenText = 0x0202;
constexpr int kNoSuchSection = 0x0203;
constexpr int kSectionExists = 0x0204;

int refuse(int code) {
    FakePlatform::current().error.code = code;
    return -1;
}

void store(char* buffer, int limit, const std::string& value) {
    const std::size_t length = std::min(value.size(), static_cast<std::size_t>(std::max(limit, 0)));
    std::memcpy(buffer, value.data(), length);
    buffer[length] = '\0';
}

bool areStorable(const KeyValues& keys) {
    return std::all_of(keys.begin(), keys.end(), [](const auto& pair) {
        return ombrel::test::isStorableKey(pair.first) && ombrel::test::isStorable(pair.second);
    });
}

bool isSectionName(const char* name) {
    constexpr std::size_t kMostBytes = 255;
    return name != nullptr && *name != '\0' && std::strlen(name) <= kMostBytes && ombrel::test::isStorable(name) &&
           std::strchr(name, ']') == nullptr;
}

std::vector<std::string> linesFor(const KeyValues& keys, const char* format) {
    std::vector<std::string> lines;
    for (const auto& [key, value] : keys) {
        std::string line = ombrel::test::formatLine(format, key, value);
        if (!line.empty() && line.back() == '\n') line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

std::string shownKeys(const VLIBSZHASH* keys) {
    std::string text = "{";
    const char* separator = "";
    for (const auto& [key, value] : keys->values) {
        text += separator + key + "=" + value;
        separator = ", ";
    }
    return text + "}";
}

}  // namespace

extern "C" {

int VLIBCFileGetKeyValue(const char* path, const char* key, char* buffer, int size, int flags) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBCFileGetKeyValue", path, key, size, flags)) return -1;
    const auto text = platform.read(path);
    if (!text) return -1;
    const auto value = ombrel::test::valueOf(*text, key);
    if (!value) return 0;
    store(buffer, size, *value);
    return 1;
}

int VLIBCFileSetKeys(const char* path, VLIBSZHASH* keys, int flags, const char* format) {
    FakePlatform& platform = FakePlatform::current();
    const std::string text = shownKeys(keys);
    if (platform.calls.enterLine("VLIBCFileSetKeys", "VLIBCFileSetKeys(" + ombrel::test::quoted(path) + ", " +
                                                         text + ", " + std::to_string(flags) + ", " +
                                                         ombrel::test::quoted(format) + ")")) {
        return -1;
    }
    if (!ombrel::test::isLineFormat(format)) return refuse(kInvalidArgument);
    if (!areStorable(keys->values)) return refuse(kForbiddenText);
    platform.addFile(path, ombrel::test::withKeys(platform.read(path).value_or(""), keys->values, format));
    return 0;
}

int VLIBCFileGetSection(const char* path, const char* section, VLIBSZHASH** hash) {
    FakePlatform& platform = FakePlatform::current();
    const bool fails = platform.calls.enter("VLIBCFileGetSection", path, section);
    if (fails && !platform.failuresHandOutObjects) return -1;
    const auto text = platform.read(path);
    if (!text) return -1;
    SectionedText file(*text);
    const Section* found = file.find(section);
    if (found == nullptr) return fails ? -1 : 0;
    auto* filled = new VLIBSZHASH;
    if (*hash != nullptr) {
        filled->values = (*hash)->values;
        if (platform.live.remove("hash", *hash)) delete *hash;
    }
    for (const auto& [key, value] : found->keys())
        filled->values.set(key, value);
    platform.live.add("hash", filled);
    *hash = filled;  // another object, also when reading the section fails half-way
    return fails ? -1 : found->keys().size();
}

int VLIBCFileAddSection(const char* path, const char* section, VLIBSZHASH* keys, const char* format) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBCFileAddSection", path, section, shownKeys(keys), format)) return -1;
    if (!ombrel::test::isLineFormat(format)) return refuse(kInvalidArgument);
    if (!isSectionName(section) || !areStorable(keys->values)) return refuse(kForbiddenText);
    SectionedText file(platform.read(path).value_or(""));
    if (file.find(section) != nullptr) return refuse(kSectionExists);
    file.sections.push_back({section, linesFor(keys->values, format)});
    platform.addFile(path, file.text());
    return 0;
}

int VLIBCFileSetSection(const char* path, const char* oldSection, const char* newSection, VLIBSZHASH* keys,
                        const char* format) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBCFileSetSection", path, oldSection, newSection, shownKeys(keys), format))
        return -1;
    if (!ombrel::test::isLineFormat(format)) return refuse(kInvalidArgument);
    if (!isSectionName(newSection) || !areStorable(keys->values)) return refuse(kForbiddenText);
    SectionedText file(platform.read(path).value_or(""));
    Section* found = file.find(oldSection);
    if (found == nullptr) return refuse(kNoSuchSection);
    if (std::strcmp(oldSection, newSection) != 0 && file.find(newSection) != nullptr)
        return refuse(kSectionExists);
    *found = {newSection, linesFor(keys->values, format)};
    platform.addFile(path, file.text());
    return 0;
}

int VLIBCFileRemoveSection(const char* path, const char* section) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBCFileRemoveSection", path, section)) return -1;
    SectionedText file(platform.read(path).value_or(""));
    const Section* found = file.find(section);
    if (found == nullptr) return refuse(kNoSuchSection);
    file.sections.erase(file.sections.begin() + (found - file.sections.data()));
    platform.addFile(path, file.text());
    return 0;
}

int VLIBCFileEnumSection(const char* path, VLIBSZLIST** list) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBCFileEnumSection", path)) return -1;
    const auto text = platform.read(path);
    if (!text) return -1;
    std::vector<std::string> names;
    for (const Section& section : SectionedText(*text).sections)
        names.push_back(section.name);
    ombrel::test::pushMoving(list, names);
    return 0;
}

int VLIBCFileGetSectionValue(const char* path, const char* section, const char* key, char* buffer, int size) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBCFileGetSectionValue", path, section, key, size)) return -1;
    SectionedText file(platform.read(path).value_or(""));
    const Section* found = file.find(section);
    if (found == nullptr || size <= 0) return -1;
    const KeyValues keys = found->keys();
    const std::string* value = keys.find(key);
    if (value == nullptr) return -1;
    store(buffer, size - 1, *value);
    return 0;
}

int VLIBCFileSetSectionValue(const char* path, const char* section, const char* key, const char* value) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBCFileSetSectionValue", path, section, key, value)) return -1;
    if (!areStorable({{key, value}})) return refuse(kForbiddenText);
    SectionedText file(platform.read(path).value_or(""));
    if (file.find(section) == nullptr) {
        if (!isSectionName(section)) return refuse(kForbiddenText);
        file.sections.push_back({section, {}});
    }
    Section* found = file.find(section);
    const std::string line = std::string(key) + "=\"" + value + "\"";
    const auto same = std::find_if(found->lines.begin(), found->lines.end(), [key](const std::string& candidate) {
        const auto pair = ombrel::test::parseLine(candidate);
        return pair && pair->first == key;
    });
    if (same == found->lines.end()) {
        found->lines.push_back(line);
    } else {
        *same = line;
    }
    platform.addFile(path, file.text());
    return 0;
}

}  // extern "C"
