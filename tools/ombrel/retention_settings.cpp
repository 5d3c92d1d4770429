// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/retention_settings.h"

#include <sysexits.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <set>
#include <string_view>

#include "linux/common/error_record.h"
#include "src/platform_handles.h"
#include "tools/ombrel/answer.h"
#include "tools/ombrel/error_text.h"
#include "tools/ombrel/size_words.h"

namespace ombrel {

namespace {

constexpr long long kMostDays = 36500;
constexpr unsigned long long kMostGib = 1ULL << 30;  // an EiB

template <typename Number>
std::optional<Number> wholeNumber(std::string_view text, Number most) {
    Number number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || stop != end || number < 0 || number > most) return std::nullopt;
    return number;
}

std::optional<unsigned long long> gibOf(std::string_view text) {
    if (const auto gib = wholeNumber(text, static_cast<long long>(kMostGib))) {
        return static_cast<unsigned long long>(*gib) * kGib;
    }
    const bool hasUnit = !text.empty() && (text.back() < '0' || text.back() > '9');
    const auto bytes = hasUnit ? parseSize(text) : std::nullopt;
    return bytes && *bytes % kMib == 0 && *bytes <= kMostGib * kGib ? bytes : std::nullopt;
}

std::string gibValue(unsigned long long bytes) {
    return bytes % kGib == 0 ? std::to_string(bytes / kGib) : std::to_string(bytes / kMib) + "M";
}

bool parseDays(std::string_view text, RetentionSettings& settings) {
    const auto days = wholeNumber(text, kMostDays);
    if (days) settings.keepDays = *days;
    return days.has_value();
}

template <unsigned long long RetentionSettings::*Member>
bool parseGib(std::string_view text, RetentionSettings& settings) {
    const auto bytes = gibOf(text);
    if (bytes) settings.*Member = *bytes;
    return bytes.has_value();
}

struct RetentionField {
    const char* key;
    const char* allowed;
    bool (*parse)(std::string_view, RetentionSettings&);
    std::string (*print)(const RetentionSettings&);
};

constexpr const char* kGibAllowed = "a number of GiB, or a size in whole MiB such as 500M; 0 is off";
const std::array<RetentionField, 3> kRetentionFields = {
    {{"keep_days", "a number of days from 0 to 36500; 0 is off", parseDays,
      [](const RetentionSettings& settings) { return std::to_string(settings.keepDays); }},
     {"keep_gib", kGibAllowed, parseGib<&RetentionSettings::keepBytes>,
      [](const RetentionSettings& settings) { return gibValue(settings.keepBytes); }},
     {"free_gib", kGibAllowed, parseGib<&RetentionSettings::freeBytes>,
      [](const RetentionSettings& settings) { return gibValue(settings.freeBytes); }}}};

const RetentionField* findField(std::string_view key) {
    const auto found = std::find_if(kRetentionFields.begin(), kRetentionFields.end(),
                                    [key](const RetentionField& field) { return field.key == key; });
    return found == kRetentionFields.end() ? nullptr : &*found;
}

std::string wrongValue(const RetentionField& field, const std::string& value) {
    return std::string(field.key) + "=\"" + value + "\": expected " + field.allowed;
}

}  // namespace

RetentionRead readRetention() {
    RetentionSettings settings;
    if (VLIBCFileExist(kRetentionFile) == 0) return {settings, 0};
    const std::string file = kRetentionFile;
    for (const RetentionField& field : kRetentionFields) {
        std::array<char, 4096> value{};
        VLIBCErrSetEx(0, "", 0);
        const int found = VLIBCFileGetKeyValue(kRetentionFile, field.key, value.data(), value.size() - 1, 0);
        if (found < 0) {
            const int code = VLIBCErrGet();
            const std::string why = errorText(code).empty() ? "" : " (" + errorText(code) + ")";
            return {std::nullopt, complain(code == fromErrno(EACCES) ? EX_NOPERM : EX_CONFIG,
                                           file + " cannot be read" + why + "; no archive is removed")};
        }
        if (found > 0 && !field.parse(value.data(), settings)) {
            return {std::nullopt, complain(EX_CONFIG, file + ": " + wrongValue(field, value.data()) +
                                                          "; no archive is removed until that is mended")};
        }
    }
    return {settings, 0};
}

std::optional<std::string> applyRetentionWords(const std::vector<std::string>& words,
                                               RetentionSettings& settings) {
    std::set<std::string> seen;
    for (const std::string& word : words) {
        const auto equals = word.find('=');
        if (equals == std::string::npos) return "\"" + word + "\" is not KEY=VALUE";
        const std::string key = word.substr(0, equals);
        const RetentionField* field = findField(key);
        if (field == nullptr) return "no limit \"" + key + "\"; expected keep_days, keep_gib or free_gib";
        if (!seen.insert(key).second) return key + " is given twice";
        const std::string value = word.substr(equals + 1);
        if (!field->parse(value, settings)) return wrongValue(*field, value);
    }
    return std::nullopt;
}

bool writeRetention(const RetentionSettings& settings) {
    const Hash keys(VLIBCSzHashAlloc(1024));
    if (!keys) return false;
    for (const RetentionField& field : kRetentionFields) {
        if (VLIBCSzHashSetValue(keys.get(), field.key, field.print(settings).c_str()) < 0) return false;
    }
    return VLIBCFileSetKeys(kRetentionFile, keys.get(), 0, "%s=\"%s\"\n") >= 0;
}

std::vector<std::string> retentionLines(const RetentionSettings& settings) {
    std::vector<std::string> lines;
    lines.reserve(kRetentionFields.size());
    for (const RetentionField& field : kRetentionFields)
        lines.push_back(std::string(field.key) + "=\"" + field.print(settings) + "\"");
    return lines;
}

std::string gibText(unsigned long long bytes) {
    return bytes % kGib == 0 ? std::to_string(bytes / kGib) + " GiB" : std::to_string(bytes / kMib) + " MiB";
}

}  // namespace ombrel
