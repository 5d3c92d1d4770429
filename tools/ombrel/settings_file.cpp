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

SettingsRead readSettings() {
    SettingsRead read;
    SettingsRecord record;
    VLIBCErrSetEx(0, "", 0);
    if (SyslogConfGet(kSettingsFile, record) == 0) {
        read.record = std::move(record);
        return read;
    }
    const int code = VLIBCErrGet();
    const std::string why = errorText(code);
    const std::string file = kSettingsFile;
    if (code == fromErrno(EACCES)) {
        read.exitCode = complain(EX_NOPERM, file + " cannot be read (" + why + "); root can");
    } else if (!why.empty()) {
        read.exitCode = complain(EX_CONFIG, file + " cannot be read (" + why + ")");
    } else {
        read.exitCode = complain(EX_CONFIG, file + " cannot be read or lacks a required key");
    }
    return read;
}

}  // namespace ombrel
