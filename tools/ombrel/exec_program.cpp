// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/exec_program.h"

#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "tools/ombrel/answer.h"

namespace ombrel {

int execProgram(const std::string& path, const std::vector<std::string>& words) {
    std::vector<std::string> texts = {path};
    texts.insert(texts.end(), words.begin(), words.end());
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    (void)std::fflush(nullptr);  // what is still in the buffers would be gone
    // What is ignored stays so in the next program, which is not asked whether it wants that.
    if (std::signal(SIGPIPE, SIG_DFL) != SIG_ERR) (void)::execv(path.c_str(), pointers.data());
    const int code = errno;
    (void)std::signal(SIGPIPE, SIG_IGN);  // as it was
    return complain(code == EACCES ? EX_NOPERM : 1, path + " cannot be run: " + std::strerror(code));
}

}  // namespace ombrel
