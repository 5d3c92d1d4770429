// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// How a command says things: its answer on standard output, what is wrong in one line on standard error.
#pragma once

#include <string>
#include <string_view>

namespace ombrel {

/// Prints "ombrel: WHAT" on standard error, made safe for one line, and returns `exitCode`.
int complain(int exitCode, const std::string& what);

/// Puts text, as it is, on standard output. False when it could not be written.
bool say(std::string_view text);

/// The exit code of a command whose answer went out whole or did not (which is said, unless nobody reads any more:
/// a closed pipe is the reader's own will).
int endOfOutput(bool written, int exitCode = 0);

}  // namespace ombrel
