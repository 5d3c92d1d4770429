// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "src/settings_keys.h"

#include "ombrel/utils.h"
#include "platform/vesksyslog.h"

namespace ombrel {

void SettingsKeys::text(const char* key, const char* value) {
    if (VLIBCSzHashSetValue(keys_, key, value) < 0) complete_ = false;
}

void SettingsKeys::number(const char* key, long long value) {
    text(key, ullNumberToString(static_cast<unsigned long long>(value)));
}

void SettingsKeys::transport(const char* key, int value) {
    text(key, value == SYSLOG_TRANSMISSION_UDP ? "udp" : "tcp");
}

void SettingsKeys::format(const char* key, unsigned int value) {
    switch (value) {
        case SYSLOG_ARCH_FMT_XML:
            return text(key, "xml");
        case SYSLOG_ARCH_FMT_TXT:
            return text(key, "txt");
        default:
            return text(key, "db");
    }
}

}  // namespace ombrel
