// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include <sysexits.h>

#include <cstdio>
#include <string_view>

#include "linux/common/text_escape.h"
#include "tools/ombrel/commands.h"

bool ombrel::asksForHelp(std::span<char* const> words) {
    return words.size() == 1 && std::string_view(words[0]) == "--help";
}

int ombrel::showHelp(const char* usage) {
    return puts(usage) >= 0 ? EX_OK : EX_IOERR;
}
