// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/settings_fields.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>

namespace ombrel {

namespace {

using enum SettingsPart;

constexpr std::size_t kLongestValue = 4095;  // more would not be read back

/// Decimal digits and nothing else.
std::optional<int> parseNumber(std::string_view text, int lowest, int highest) {
    int value = 0;
    const char* end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || stopped != end || value < lowest || value > highest) return std::nullopt;
    return value;
}

template <auto kMember>
struct Number {
    static constexpr SettingsKind kKind = SettingsKind::kNumber;
    static constexpr const char* kAllowed = "a number from 0 to 2147483647";
    static std::string print(const SettingsRecord& record) { return std::to_string(record.*kMember); }
    static bool parse(std::string_view text, SettingsRecord& record) {
        const auto value = parseNumber(text, 0, std::numeric_limits<int>::max());
        if (value) record.*kMember = *value;
        return value.has_value();
    }
};

template <int SettingsRecord::*kMember>
struct Port : Number<kMember> {
    static constexpr const char* kAllowed = "a port from 1 to 65535";
    static bool parse(std::string_view text, SettingsRecord& record) {
        const auto value = parseNumber(text, 1, 65535);
        if (value) record.*kMember = *value;
        return value.has_value();
    }
};

template <int SettingsRecord::*kMember>
struct Switch {
    static constexpr SettingsKind kKind = SettingsKind::kSwitch;
    static constexpr const char* kAllowed = "0 or 1";
    static std::string print(const SettingsRecord& record) { return record.*kMember != 0 ? "1" : "0"; }
    static bool parse(std::string_view text, SettingsRecord& record) {
        if (text != "0" && text != "1") return false;
        // The state of a job is any number but 0; the same state is no change.
        if (text != print(record)) record.*kMember = text == "1" ? 1 : 0;
        return true;
    }
};

template <int SettingsRecord::*kMember>
struct TransportOf {
    static constexpr SettingsKind kKind = SettingsKind::kText;
    static constexpr const char* kAllowed = "udp or tcp";
    static std::string print(const SettingsRecord& record) {
        return record.*kMember == SYSLOG_TRANSMISSION_UDP ? "udp" : "tcp";
    }
    static bool parse(std::string_view text, SettingsRecord& record) {
        if (text != "udp" && text != "tcp") return false;
        record.*kMember = text == "udp" ? SYSLOG_TRANSMISSION_UDP : SYSLOG_TRANSMISSION_TCP;
        return true;
    }
};

struct Format {
    static constexpr SettingsKind kKind = SettingsKind::kText;
    static constexpr const char* kAllowed = "db, xml or txt";
    static std::string print(const SettingsRecord& record) {
        if (record.arch_fmt == SYSLOG_ARCH_FMT_XML) return "xml";
        return record.arch_fmt == SYSLOG_ARCH_FMT_TXT ? "txt" : "db";
    }
    static bool parse(std::string_view text, SettingsRecord& record) {
        if (text != "db" && text != "xml" && text != "txt") return false;
        record.arch_fmt = text == "db"    ? SYSLOG_ARCH_FMT_DB
                          : text == "xml" ? SYSLOG_ARCH_FMT_XML
                                          : SYSLOG_ARCH_FMT_TXT;
        return true;
    }
};

/// What a line of the settings file and the configuration of a receiver can hold.
bool isPlain(std::string_view text) {
    return text.size() <= kLongestValue && std::none_of(text.begin(), text.end(), [](char c) {
               return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
           });
}

template <std::string SettingsRecord::*kMember>
struct Path {
    static constexpr SettingsKind kKind = SettingsKind::kText;
    static constexpr const char* kAllowed =
        "an absolute path or nothing, at most 4095 bytes without control characters";
    static std::string print(const SettingsRecord& record) { return record.*kMember; }
    static bool parse(std::string_view text, SettingsRecord& record) {
        if (!isPlain(text) || (!text.empty() && text.front() != '/')) return false;
        record.*kMember = text;
        return true;
    }
};

struct ShareName {
    static constexpr SettingsKind kKind = SettingsKind::kText;
    static constexpr const char* kAllowed =
        "the name of a share or nothing, without slashes and control characters";
    static std::string print(const SettingsRecord& record) { return record.server_db_loc; }
    static bool parse(std::string_view text, SettingsRecord& record) {
        if (!isPlain(text) || text.find('/') != std::string_view::npos) return false;
        record.server_db_loc = text;
        return true;
    }
};

template <typename Kind>
constexpr SettingsField field(const char* name, SettingsPart part) {
    return {name, part, Kind::kKind, Kind::kAllowed, Kind::print, Kind::parse};
}

constexpr SettingsField kSettingsFields[] = {
    field<Switch<&SettingsRecord::bsd_enable>>("bsd_enable", kReceivers),
    field<Switch<&SettingsRecord::server_ssl>>("server_ssl", kReceivers),
    field<Port<&SettingsRecord::server_port>>("server_port", kReceivers),
    field<TransportOf<&SettingsRecord::server_trans>>("server_trans", kReceivers),
    field<Switch<&SettingsRecord::ietf_enable>>("ietf_enable", kReceivers),
    field<Switch<&SettingsRecord::server_ietf_ssl>>("server_ietf_ssl", kReceivers),
    field<Port<&SettingsRecord::server_ietf_port>>("server_ietf_port", kReceivers),
    field<TransportOf<&SettingsRecord::server_ietf_trans>>("server_ietf_trans", kReceivers),
    field<ShareName>("server_db_loc", kAlong),
    field<Path<&SettingsRecord::server_db_path>>("server_db_path", kAlong),
    field<Path<&SettingsRecord::server_ca_key>>("server_ca_key", kReceivers),
    field<Path<&SettingsRecord::server_ca_file>>("server_ca_file", kReceivers),
    field<Path<&SettingsRecord::arch_dest>>("arch_dest", kStorage),
    field<Number<&SettingsRecord::arch_time>>("arch_time", kStorage),
    field<Number<&SettingsRecord::arch_size>>("arch_size", kStorage),
    field<Number<&SettingsRecord::arch_count>>("arch_count", kStorage),
    field<Format>("arch_fmt", kStorage),
    field<Switch<&SettingsRecord::arch_compress>>("arch_compress", kStorage),
    field<Switch<&SettingsRecord::arch_by_device>>("arch_by_device", kStorage),
    field<Switch<&SettingsRecord::localarchive_enable>>("localarchive_enable", kStorage),
    field<Number<&SettingsRecord::arch_last_time>>("arch_last_time", kStorage),
    field<Number<&SettingsRecord::system_flush_line>>("system_flush_line", kStorage),
    field<Number<&SettingsRecord::system_flush_timeout>>("system_flush_timeout", kStorage),
    field<Switch<&SettingsRecord::arch_time_enable>>("arch_time_enable", kStorage),
    field<Switch<&SettingsRecord::arch_count_enable>>("arch_count_enable", kStorage),
};

}  // namespace

std::span<const SettingsField> settingsFields() {
    return kSettingsFields;
}

const SettingsField* findSettingsField(std::string_view name) {
    const auto* found = std::find_if(std::begin(kSettingsFields), std::end(kSettingsFields),
                                     [name](const SettingsField& field) { return name == field.name; });
    return found == std::end(kSettingsFields) ? nullptr : found;
}

}  // namespace ombrel
