// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/answer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "linux/common/text_escape.h"

namespace ombrel {

int complain(int exitCode, const std::string& what) {
    (void)std::fprintf(stderr, "ombrel: %s\n", escapeForLine(what).c_str());
    return exitCode;
}

bool say(std::string_view text) {
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
}

int endOfOutput(bool written, int exitCode) {
    errno = 0;
    if (std::fflush(stdout) == 0 && written && std::ferror(stdout) == 0) return exitCode;
    if (errno == EPIPE) return exitCode;
    const std::string why = errno == 0 ? "" : std::string(": ") + std::strerror(errno);
    return complain(1, "the answer could not be written out" + why);
}

}  // namespace ombrel
