// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel complete`: asked by the completions of bash, zsh and fish. A line "WORD<TAB>HELP" for each candidate,
// and a line with a tab alone where names of files fit too.
#include <list>
#include <memory>

#include "linux/common/text_escape.h"
#include "ombrel/customizerule.h"
#include "tools/ombrel/commands.h"
#include "tools/ombrel/completion.h"
#include "tools/ombrel/job_names.h"
#include "tools/ombrel/settings_fields.h"

namespace ombrel {

namespace {

std::vector<std::string> namesOfKind(WordKind kind) {
    std::vector<std::string> names;
    switch (kind) {
        case WordKind::kRule:
            for (const std::string& name : VESKCustomizedRuleEnum()) {
                if (escapeForLine(name) == name) names.push_back(name);
            }
            break;
        case WordKind::kSetting:
            for (const SettingsField& field : settingsFields())
                names.emplace_back(field.name);
            break;
        case WordKind::kJob:
            names.assign(kJobNames.begin(), kJobNames.end());
            break;
        case WordKind::kAny:
        case WordKind::kPath:
            break;
    }
    return names;
}

int complete(std::vector<std::string> words) {
    // The shells put "--" before what is being typed, so that none of it is taken for a word of ours.
    if (!words.empty() && words.front() == "--") words.erase(words.begin());
    const Command root = ombrelCommands();
    const Completion completion = completionOf(root, std::move(words), namesOfKind);
    bool written = true;
    for (const Candidate& candidate : completion.candidates)
        written = say(candidate.word + "\t" + candidate.help + "\n") && written;
    if (completion.files) written = say("\t\n") && written;
    return endOfOutput(written);
}

}  // namespace

void addCompleteCommand(Command& root) {
    auto words = std::make_shared<std::vector<std::string>>();
    root.add("complete", "what may stand at the end of a command line, for the shells")
        .passOn("WORD", *words)
        .hide()
        .run([words](const Context&) { return complete(*words); });
}

}  // namespace ombrel
