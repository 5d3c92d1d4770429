// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The messages that end with what the platform says of the call that failed.
#pragma once

#include <syslog.h>

#include "platform/veskcore.h"

namespace ombrel {

/// Logs "UNIT:LINE TEXT[CODE FILE:LINE]"; result -1, so that a failing operation can end with it.
/// @param format  "%s:%d TEXT[0x%04X %s:%d]"; the values of TEXT, numbers and NUL-terminated texts, are given
///                behind the line, those of the error record are added
template <typename... Values>
int logFailedCall(const char* format, const char* unit, int line, Values... values) {
    syslog(LOG_ERR, format, unit, line, values..., static_cast<unsigned int>(VLIBCErrGet()), VLIBCErrorGetFile(),
           VLIBCErrorGetLine());
    return -1;
}

}  // namespace ombrel
