// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What may stand at the end of a command line that somebody is typing.
#pragma once

#include <string>
#include <vector>

#include "tools/ombrel/command.h"

namespace ombrel {

struct Candidate {
    std::string word;
    std::string help;
};

struct Completion {
    std::vector<Candidate> candidates;
    bool files = false;  ///< the names of files as well
};

/// Texts that are not known from the tree: the names of rules and the like.
using NamesOfKind = std::function<std::vector<std::string>(WordKind kind)>;

/// `words` without the program's own name; the last one, which may be empty, is the one that is being typed. Only
/// candidates that begin with it are given.
Completion completionOf(const Command& root, std::vector<std::string> words, const NamesOfKind& namesOfKind);

}  // namespace ombrel
