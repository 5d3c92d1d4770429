// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A complete settings file, and variations of it.
#pragma once

#include <map>
#include <set>
#include <string>

namespace ombrel::test {

inline constexpr const char* kServerConf = "/var/packages/Ombrel/target/service/conf/server.conf";
inline constexpr const char* kSchema = "/usr/vesk/syslog/schema/loginfo2.sql";

using Settings = std::map<std::string, std::string>;

/// Every key, none of them with the value that a missing key or a default would give.
inline Settings sampleSettings() {
    return {{"server_port", "5140"},
            {"server_trans", "udp"},
            {"server_ssl", "1"},
            {"server_ietf_port", "6514"},
            {"server_ietf_trans", "tcp"},
            {"server_ietf_ssl", "1"},
            {"server_db_loc", "logs"},
            {"server_db_path", "/volume1/logs/db"},
            {"server_ca_key", "/etc/ssl/ombrel.key"},
            {"server_ca_file", "/etc/ssl/ombrel.crt"},
            {"arch_dest", "/volume1/logs"},
            {"arch_time", "86400"},
            {"arch_time_enable", "1"},
            {"arch_size", "64"},
            {"arch_count", "5000"},
            {"arch_count_enable", "1"},
            {"arch_fmt", "txt"},
            {"arch_compress", "1"},
            {"arch_by_device", "1"},
            {"arch_last_time", "1600000000"},
            {"system_flush_line", "100"},
            {"system_flush_timeout", "10"}};
}

inline std::string settingsText(const Settings& settings) {
    std::string text;
    for (const auto& [key, value] : settings)
        text += key + "=\"" + value + "\"\n";
    return text;
}

/// The sample with some values changed and some keys left out.
inline std::string sampleText(const Settings& changed = {}, const std::set<std::string>& without = {}) {
    Settings settings = sampleSettings();
    for (const auto& [key, value] : changed)
        settings[key] = value;
    for (const std::string& key : without)
        settings.erase(key);
    return settingsText(settings);
}

}  // namespace ombrel::test
