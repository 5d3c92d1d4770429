// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Key/value files: server.conf, enable_services.
#include <algorithm>
#include <cstring>

#include "linux/veskcore/guarded.h"
#include "linux/veskcore/settings_file.h"

using namespace ombrel;

extern "C" {

int VLIBCFileGetKeyValue(const char* path, const char* key, char* buffer, int size, int /*flags*/) {
    if (path == nullptr || key == nullptr || buffer == nullptr || size < 0) return fail(kErrorInvalidArgument);
    return guarded([&] {
        std::string text;
        if (readSettings(path, text) != 0) return -1;
        const std::optional<std::string_view> value = valueOf(text, key);
        if (!value) return 0;
        const std::size_t length = std::min(value->size(), static_cast<std::size_t>(size));
        std::memcpy(buffer, value->data(), length);
        buffer[length] = '\0';
        return 1;
    });
}

int VLIBCFileSetKeys(const char* path, VLIBSZHASH* keys, int /*flags*/, const char* format) {
    if (path == nullptr || keys == nullptr || format == nullptr) return fail(kErrorInvalidArgument);
    return guarded([&] {
        const std::optional<LineFormat> line = LineFormat::parse(format);
        if (!line) return fail(kErrorInvalidArgument);
        return changeSettings(path, [&](const std::string& text) { return withKeys(text, *keys, *line); });
    });
}

}  // extern "C"
