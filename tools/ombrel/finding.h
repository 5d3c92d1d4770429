// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What a command found that checks several things: a line each for people, one document for programs. Pure.
#pragma once

#include <string>
#include <vector>

#include "tools/ombrel/json_writer.h"
#include "tools/ombrel/terminal.h"

namespace ombrel {

enum class FindingState {
    kOk,
    kWarning,  ///< unusual, yet it works
    kWrong,
    kUnknown,  ///< cannot be told
};

/// Texts may hold any bytes.
struct Finding {
    FindingState state = FindingState::kOk;
    std::string name;  ///< what was looked at: "server_port", "job pkg-Ombrel-bsd"
    std::string what;
    std::string advice;  ///< what to do about it; may be empty
};
using Findings = std::vector<Finding>;

/// Whether nothing is wrong; what cannot be told is not.
bool isGood(const Findings& findings);

/// A line each: "wrong        NAME: WHAT; ADVICE" on a terminal, elsewhere with tabs between state, name, what,
/// advice.
std::string findingsText(const Findings& findings, const Terminal& terminal);

/// The members of an object: "ok" of all, and "findings". Each has "ok" (null: cannot be told), "state" (ok,
/// warning, wrong, unknown), "name", "what", "advice".
void writeFindings(JsonWriter& json, const Findings& findings);
/// The same as a whole document.
std::string findingsJson(const Findings& findings);

}  // namespace ombrel
