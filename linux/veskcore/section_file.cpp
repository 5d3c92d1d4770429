// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Sectioned files: custrule.conf, the port declarations.
#include <algorithm>
#include <cstring>
#include <memory_resource>
#include <unordered_set>

#include "linux/veskcore/guarded.h"
#include "linux/veskcore/settings_file.h"

using namespace ombrel;

namespace {

constexpr const char* kUsualFormat = "%s=\"%s\"\n";

int readKeys(std::string_view body, VLIBSZHASH& hash) {
    int count = 0;
    std::unordered_set<std::string_view> seen;
    for (LineReader reader(body); reader.next();) {
        const std::optional<KeyValue> pair = parseKeyValue(reader.text());
        if (!pair || !seen.insert(pair->key).second) continue;
        hash.set(pair->key, pair->value);
        ++count;
    }
    return count;
}

int changeWithFormat(const char* path, const char* format,
                     const std::function<Edited(const std::string&, const LineFormat&)>& edit) {
    const std::optional<LineFormat> line = LineFormat::parse(format);
    if (!line) return fail(kErrorInvalidArgument);
    return changeSettings(path, [&](const std::string& text) { return edit(text, *line); });
}

}  // namespace

extern "C" {

int VLIBCFileGetSection(const char* path, const char* section, VLIBSZHASH** hash) {
    if (path == nullptr || section == nullptr || hash == nullptr) return fail(kErrorInvalidArgument);
    return guarded([&] {
        std::string text;
        if (readSettings(path, text) != 0) return -1;
        if (*hash == nullptr) *hash = VLIBCSzHashAlloc(0);
        if (*hash == nullptr) return -1;
        const std::optional<std::string_view> body = bodyOf(text, section);
        return body ? readKeys(*body, **hash) : 0;
    });
}

int VLIBCFileAddSection(const char* path, const char* section, VLIBSZHASH* keys, const char* format) {
    if (path == nullptr || section == nullptr || keys == nullptr || format == nullptr) {
        return fail(kErrorInvalidArgument);
    }
    return guarded([&] {
        return changeWithFormat(path, format, [&](const std::string& text, const LineFormat& line) {
            return withSection(text, section, *keys, line);
        });
    });
}

int VLIBCFileSetSection(const char* path, const char* oldSection, const char* newSection, VLIBSZHASH* keys,
                        const char* format) {
    if (path == nullptr || oldSection == nullptr || newSection == nullptr || keys == nullptr ||
        format == nullptr) {
        return fail(kErrorInvalidArgument);
    }
    return guarded([&] {
        return changeWithFormat(path, format, [&](const std::string& text, const LineFormat& line) {
            return withSectionReplaced(text, oldSection, newSection, *keys, line);
        });
    });
}

int VLIBCFileRemoveSection(const char* path, const char* section) {
    if (path == nullptr || section == nullptr) return fail(kErrorInvalidArgument);
    return guarded([&] {
        return changeSettings(path, [&](const std::string& text) { return withoutSection(text, section); });
    });
}

int VLIBCFileEnumSection(const char* path, VLIBSZLIST** list) {
    if (path == nullptr || list == nullptr || *list == nullptr) return fail(kErrorInvalidArgument);
    return guarded([&] {
        std::string text;
        if (readSettings(path, text) != 0) return -1;
        std::pmr::monotonic_buffer_resource memory;  // thousands of names, and all of them go at once
        std::pmr::unordered_set<std::string_view> seen(&memory);
        for (LineReader reader(text); reader.next();) {
            const std::optional<std::string_view> name = parseHeader(reader.text());
            if (!name || !seen.insert(*name).second) continue;
            if (VLIBCSzListPush(list, std::string(*name).c_str()) < 0) return -1;
        }
        return 0;
    });
}

int VLIBCFileGetSectionValue(const char* path, const char* section, const char* key, char* buffer, int size) {
    if (path == nullptr || section == nullptr || key == nullptr || buffer == nullptr || size < 1) {
        return fail(kErrorInvalidArgument);
    }
    return guarded([&] {
        std::string text;
        if (readSettings(path, text) != 0) return -1;
        const std::optional<std::string_view> body = bodyOf(text, section);
        const std::optional<std::string_view> value = body ? valueOf(*body, key) : std::nullopt;
        if (!value) return fail(kErrorNotFound);
        const std::size_t length = std::min(value->size(), static_cast<std::size_t>(size) - 1);
        std::memcpy(buffer, value->data(), length);
        buffer[length] = '\0';
        return 0;
    });
}

int VLIBCFileSetSectionValue(const char* path, const char* section, const char* key, const char* value) {
    if (path == nullptr || section == nullptr || key == nullptr || value == nullptr) {
        return fail(kErrorInvalidArgument);
    }
    return guarded([&] {
        VLIBSZHASH keys;
        keys.set(key, value);
        return changeWithFormat(path, kUsualFormat, [&](const std::string& text, const LineFormat& line) {
            return withSectionKeys(text, section, keys, line);
        });
    });
}

}  // extern "C"
