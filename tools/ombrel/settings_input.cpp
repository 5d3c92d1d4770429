// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/settings_input.h"

#include <sysexits.h>

#include <array>
#include <cstring>
#include <map>
#include <optional>

#include "linux/common/bounded_file.h"
#include "linux/veskcore/settings_line.h"
#include "platform/veskcore.h"
#include "tools/ombrel/answer.h"
#include "tools/ombrel/settings_fields.h"

namespace ombrel {

namespace {

constexpr std::size_t kMostBytes = 1 << 20;
constexpr int kLongestSetting = 4095;

/// Reads one value as the product reads its own settings.
std::optional<std::string> valueOf(const std::string& path, const std::string& key) {
    std::array<char, kLongestSetting + 1> value{};
    if (VLIBCFileGetKeyValue(path.c_str(), key.c_str(), value.data(), kLongestSetting, 0) <= 0)
        return std::nullopt;
    return std::string(value.data());
}

/// The keys of a file and the line that each stands on; what is wrong with the first wrong line.
std::optional<std::string> readKeys(std::string_view text, std::vector<std::pair<std::string, int>>& keys) {
    std::map<std::string, int, std::less<>> seen;
    int number = 0;
    for (LineReader reader(text); reader.next();) {
        ++number;
        if (saysNothing(reader.text())) continue;
        const auto pair = parseKeyValue(reader.text());
        const std::string place = ":" + std::to_string(number) + ": ";
        if (!pair) return place + "expected KEY=\"VALUE\"";
        const std::string key(pair->key);
        if (findSettingsField(key) == nullptr)
            return place + "no setting \"" + key + "\"; ombrel settings show lists them";
        const auto [first, isNew] = seen.emplace(key, number);
        if (!isNew) return place + key + " is given twice, first on line " + std::to_string(first->second);
        keys.emplace_back(key, number);
    }
    return std::nullopt;
}

}  // namespace

SettingsInput readSettingsInput(const std::string& path) {
    SettingsInput input;
    std::string text;
    if (const int code = readBounded(path, kMostBytes, text)) {
        input.exitCode = complain(EX_NOINPUT, path + ": " + std::strerror(code));
        return input;
    }
    std::vector<std::pair<std::string, int>> keys;
    if (const auto wrong = readKeys(text, keys)) {
        input.exitCode = complain(EX_DATAERR, path + *wrong);
        return input;
    }
    SettingsRecord blank;
    for (const auto& [key, line] : keys) {
        const auto value = valueOf(path, key);
        const SettingsField& field = *findSettingsField(key);
        if (!value) {
            input.exitCode = complain(EX_NOINPUT, path + ": " + key + " cannot be read; try again");
            return input;
        }
        if (!field.parse(*value, blank)) {
            input.exitCode = complain(EX_DATAERR, path + ":" + std::to_string(line) + ": " + key + "=\"" + *value +
                                                      "\": expected " + field.allowed);
            return input;
        }
        input.words.push_back(key + "=" + *value);
    }
    return input;
}

}  // namespace ombrel
