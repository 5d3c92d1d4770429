// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A whole settings file in which a test changes what it is about.
#pragma once

#include <map>
#include <string>

#include "tests/receiver/temp_folder.h"

namespace ombrel {

using Settings = std::map<std::string, std::string>;

inline void writeSettings(const std::string& path, const Settings& changed) {
    Settings settings = {{"bsd_enable", "1"},
                         {"server_ssl", "0"},
                         {"server_port", "5514"},
                         {"server_trans", "udp"},
                         {"ietf_enable", "0"},
                         {"server_db_loc", "logs"},
                         {"server_db_path", "/srv/logs"},
                         {"server_ca_key", "/etc/ssl/key.pem"},
                         {"server_ca_file", "/etc/ssl/cert.pem"},
                         {"arch_dest", "/srv/logs"},
                         {"arch_time", "0"},
                         {"arch_size", "0"},
                         {"arch_count", "0"},
                         {"arch_fmt", "db"},
                         {"arch_compress", "0"},
                         {"arch_by_device", "0"},
                         {"localarchive_enable", "0"},
                         {"arch_last_time", "0"},
                         {"system_flush_line", "100"},
                         {"system_flush_timeout", "5"},
                         {"arch_time_enable", "0"},
                         {"arch_count_enable", "0"}};
    for (const auto& [key, value] : changed)
        settings[key] = value;
    std::string text;
    for (const auto& [key, value] : settings)
        text += key + "=\"" + value + "\"\n";
    // Replaced at once, as every program of the package does it.
    writeText(path + ".new", text);
    std::filesystem::rename(path + ".new", path);
}

}  // namespace ombrel
