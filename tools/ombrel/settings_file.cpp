// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/settings_file.h"

#include <sysexits.h>

#include <cerrno>

#include "linux/common/error_record.h"
#include "platform/veskcore.h"
#include "src/fixed_paths.h"
#include "tools/ombrel/answer.h"
#include "tools/ombrel/error_text.h"

namespace ombrel {

SettingsRead tryReadSettings() {
    SettingsRead read;
    SettingsRecord record;
    VLIBCErrSetEx(0, "", 0);
    if (SyslogConfGet(kSettingsFile, record) == 0) {
        read.record = std::move(record);
        return read;
    }
    const int code = VLIBCErrGet();
    const std::string why = errorText(code);
    read.complaint = std::string(kSettingsFile) + " cannot be read";
    read.exitCode = code == fromErrno(EACCES) ? EX_NOPERM : EX_CONFIG;
    if (read.exitCode == EX_NOPERM) {
        read.complaint += " (" + why + "); root can";
    } else {
        read.complaint += why.empty() ? " or lacks a required key" : " (" + why + ")";
    }
    return read;
}

SettingsRead readSettings() {
    SettingsRead read = tryReadSettings();
    if (!read.record) (void)complain(read.exitCode, read.complaint);
    return read;
}

}  // namespace ombrel
