// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/writer/writer_settings.h"

#include "ombrel/utils.h"

namespace ombrel {

std::optional<WriterSettings> readWriterSettings(const std::string& path, std::string& error) {
    _SYSLOG_CONF_SETTINGS_tag record;
    if (SyslogStorageConfGet(path, record) != 0) {
        error = "cannot read the storage settings in " + path + ": the file or one of its keys is missing";
        return std::nullopt;
    }
    if (record.arch_dest.empty() || record.arch_dest.front() != '/') {
        error = "arch_dest=\"" + record.arch_dest + "\" in " + path + " is no absolute path";
        return std::nullopt;
    }
    WriterSettings settings;
    settings.archiveFolder = record.arch_dest;
    while (settings.archiveFolder.size() > 1 && settings.archiveFolder.back() == '/')
        settings.archiveFolder.pop_back();
    settings.byDevice = record.arch_by_device != 0;
    settings.flushRows = record.system_flush_line;
    settings.flushSeconds = record.system_flush_timeout;
    return settings;
}

}  // namespace ombrel
