// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/store/host_folder.h"

#include <cstdint>

namespace ombrel {

namespace {

constexpr char kUpperHex[] = "0123456789ABCDEF";
constexpr size_t kHashDigits = 16;

bool isPlain(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
           c == '-';
}

bool isTaken(std::string_view host) noexcept {
    return host == "local" || host == "_ARCH" || host.starts_with("VESKSYSLOGDB_");
}

void appendEncoded(std::string& name, char c) {
    const auto byte = static_cast<unsigned char>(c);
    name += '%';
    name += kUpperHex[byte >> 4];
    name += kUpperHex[byte & 15];
}

// FNV-1a, 64 bits. Two hosts that met by it would share a folder; each row still names its host.
std::string hashOf(std::string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
    std::string digits;
    for (int shift = 60; shift >= 0; shift -= 4)
        digits += kUpperHex[hash >> shift & 15];
    return digits;
}

}  // namespace

std::string encodeHostName(std::string_view host) {
    if (host.empty()) return "%00";
    std::string name;
    const bool encodeFirst = host.front() == '.' || isTaken(host);
    for (size_t i = 0; i < host.size() && name.size() <= kMaxHostFolder; ++i) {
        if (isPlain(host[i]) && !(i == 0 && encodeFirst)) {
            name += host[i];
        } else {
            appendEncoded(name, host[i]);
        }
    }
    if (name.size() <= kMaxHostFolder) return name;
    return name.substr(0, kMaxHostFolder - kHashDigits - 1) + '+' + hashOf(host);
}

std::string sharedDatabasePath(const std::string& archiveFolder) {
    return archiveFolder + "/VESKSYSLOGDB__ARCH.DB";
}

std::string localDatabasePath(const std::string& archiveFolder) {
    return archiveFolder + "/VESKSYSLOGDB__LOCALARCH.DB";
}

std::string hostDatabasePath(const std::string& archiveFolder, const std::string& hostFolder) {
    return archiveFolder + "/" + hostFolder + "/VESKSYSLOGDB_" + hostFolder + ".DB";
}

}  // namespace ombrel
