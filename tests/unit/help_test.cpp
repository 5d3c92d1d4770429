// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The help of every command, as people read it.
#include <fstream>
#include <sstream>

#include "tests/fake/platform_test.h"
#include "tools/ombrel/commands.h"

namespace ombrel::test::help {

namespace {

void appendHelp(std::vector<const Command*>& path, std::string& text) {
    text += commandHelp(path) + "\n----\n\n";
    for (const Command& command : path.back()->commands()) {
        if (command.isHidden()) continue;
        path.push_back(&command);
        appendHelp(path, text);
        path.pop_back();
    }
}

std::string contentsOf(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

TEST(CommandHelp, IsThatOfTheGoldenFile) {
    const Command root = ombrelCommands();
    std::vector<const Command*> path = {&root};
    std::string help;
    appendHelp(path, help);
    const std::string made = ::testing::TempDir() + "ombrel-help.txt";
    std::ofstream(made) << help;
    EXPECT_EQ(help, contentsOf(OMBREL_HELP_FILE)) << "when it should read so, copy " << made << " to that file";
}

}  // namespace

}  // namespace ombrel::test::help
