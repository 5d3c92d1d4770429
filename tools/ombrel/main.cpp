// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel`, the command line.
#include <sysexits.h>

#include <csignal>
#include <exception>
#include <string>
#include <vector>

#include "tools/ombrel/answer.h"
#include "tools/ombrel/commands.h"

// A reader that goes away ends a command in order, and not in the middle of what it was about.
int main(int argc, char** argv) try {
    if (std::signal(SIGPIPE, SIG_IGN) == SIG_ERR) return EX_OSERR;
    const ombrel::Command root = ombrel::ombrelCommands();
    return ombrel::runCommandLine(root, std::vector<std::string>(argv + 1, argv + argc));
} catch (const std::exception& failure) {
    return ombrel::complain(EX_SOFTWARE, std::string("ends: ") + failure.what());
}
