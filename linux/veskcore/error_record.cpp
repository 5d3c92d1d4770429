// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/error_record.h"

#include <algorithm>
#include <cstring>

namespace {

struct ErrorRecord {
    int code = 0;
    int line = 0;
    char file[128] = "";
};

thread_local ErrorRecord record;

}  // namespace

extern "C" {

int VLIBCErrGet(void) {
    return record.code;
}

const char* VLIBCErrorGetFile(void) {
    return record.file;
}

int VLIBCErrorGetLine(void) {
    return record.line;
}

void VLIBCErrSetEx(int code, const char* file, int line) {
    record.code = code;
    record.line = line;
    if (file == nullptr) file = "";
    // A caller may hand the record's own name back, hence no memcpy.
    const std::size_t length = std::min(std::strlen(file), sizeof record.file - 1);
    std::memmove(record.file, file, length);
    record.file[length] = '\0';
}

}  // extern "C"
