// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The settings record and the settings file.
#include <array>
#include <cstdlib>
#include <cstring>

#include "ombrel/utils.h"
#include "platform/veskcore.h"
#include "platform/veskserviceconf.h"
#include "src/service_jobs.h"
#include "src/settings_keys.h"

namespace {

constexpr int kValueLength = 4095;
constexpr int kDefaultIetfPort = 514;

/// Reads one settings file key by key through one buffer.
class KeyReader {
public:
    explicit KeyReader(const std::string& path) : path_(path) {}

    bool number(const char* key, int& field) {
        field = 0;
        if (!read(key)) return false;
        field = asNumber();
        return true;
    }
    bool toggle(const char* key, int& field) {
        field = 0;
        if (!read(key)) return false;
        field = is("1") ? 1 : 0;
        return true;
    }
    bool transport(const char* key, int& field) {
        field = SYSLOG_TRANSMISSION_TCP;
        if (!read(key)) return false;
        field = is("udp") ? SYSLOG_TRANSMISSION_UDP : SYSLOG_TRANSMISSION_TCP;
        return true;
    }
    bool text(const char* key, std::string& field) {
        field.clear();
        if (!read(key)) return false;
        field = buffer_.data();
        return true;
    }
    bool format(const char* key, _SYSLOG_ARCH_FMT_tag& field) {
        field = SYSLOG_ARCH_FMT_DB;
        if (!read(key)) return false;
        if (is("xml")) field = SYSLOG_ARCH_FMT_XML;
        if (is("txt")) field = SYSLOG_ARCH_FMT_TXT;
        return true;
    }
    bool time(const char* key, long long& field) {
        int seconds = 0;  // a time passes through 32 bits, like every number of the file
        const bool found = number(key, seconds);
        field = seconds;
        return found;
    }

private:
    bool read(const char* key) {
        buffer_.fill('\0');
        return VLIBCFileGetKeyValue(path_.c_str(), key, buffer_.data(), kValueLength, 0) > 0;
    }
    [[nodiscard]] bool is(const char* text) const { return std::strcmp(buffer_.data(), text) == 0; }
    [[nodiscard]] int asNumber() const {
        return static_cast<int>(std::strtol(buffer_.data(), nullptr, 10));  // leading digits, narrowed
    }

    const std::string& path_;
    std::array<char, kValueLength + 1> buffer_{};
};

/// The keys of the RFC 5424 receiver came later: a file without them is whole.
void readIetfReceiver(KeyReader& file, _SYSLOG_CONF_SETTINGS_tag& rec) {
    if (!file.number("server_ietf_port", rec.server_ietf_port)) rec.server_ietf_port = kDefaultIetfPort;
    if (!file.transport("server_ietf_trans", rec.server_ietf_trans)) {
        rec.server_ietf_trans = SYSLOG_TRANSMISSION_UDP;
    }
    (void)file.toggle("server_ietf_ssl", rec.server_ietf_ssl);  // off when missing
}

}  // namespace

int SyslogServerConfGet(const std::string& path, _SYSLOG_CONF_SETTINGS_tag& rec) {
    rec.bsd_enable = VLIBServicectlIsJobRunning(kBsdJob, 0);
    rec.ietf_enable = VLIBServicectlIsJobRunning(kIetfJob, 0);

    KeyReader file(path);
    if (!file.number("server_port", rec.server_port)) return -1;
    if (!file.transport("server_trans", rec.server_trans)) return -1;
    if (!file.toggle("server_ssl", rec.server_ssl)) return -1;
    readIetfReceiver(file, rec);
    if (!file.text("server_db_loc", rec.server_db_loc)) return -1;
    if (!file.text("server_db_path", rec.server_db_path)) return -1;
    if (!file.text("server_ca_key", rec.server_ca_key)) return -1;
    if (!file.text("server_ca_file", rec.server_ca_file)) return -1;
    if (!file.text("arch_dest", rec.arch_dest)) return -1;
    return 0;
}

int SyslogStorageConfGet(const std::string& path, _SYSLOG_CONF_SETTINGS_tag& rec) {
    KeyReader file(path);
    if (!file.number("arch_time", rec.arch_time)) return -1;
    if (!file.toggle("arch_time_enable", rec.arch_time_enable)) return -1;
    if (!file.number("arch_size", rec.arch_size)) return -1;
    if (!file.number("arch_count", rec.arch_count)) return -1;
    if (!file.toggle("arch_count_enable", rec.arch_count_enable)) return -1;
    if (!file.format("arch_fmt", rec.arch_fmt)) return -1;
    if (!file.toggle("arch_compress", rec.arch_compress)) return -1;
    if (!file.toggle("arch_by_device", rec.arch_by_device)) return -1;
    if (!file.text("arch_dest", rec.arch_dest)) return -1;
    if (!file.time("arch_last_time", rec.arch_last_time)) return -1;
    if (!file.number("system_flush_line", rec.system_flush_line)) return -1;
    if (!file.number("system_flush_timeout", rec.system_flush_timeout)) return -1;
    rec.localarchive_enable = VLIBServicectlIsJobRunning(kLocalArchiveJob, 0);
    return 0;
}

int SyslogConfGet(const std::string& path, _SYSLOG_CONF_SETTINGS_tag& rec) {
    if (SyslogServerConfGet(path, rec) < 0) return -1;
    return SyslogStorageConfGet(path, rec) < 0 ? -1 : 0;
}

int SyslogFileKeySet(VLIBSZHASH* keys, const std::string& path, _SYSLOG_CONF_SETTINGS_tag& /*rec*/) {
    return VLIBCFileSetKeys(path.c_str(), keys, 0, ombrel::kSettingsLineFormat) < 0 ? -1 : 0;
}
