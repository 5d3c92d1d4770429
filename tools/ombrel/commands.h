// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The sub-commands of `ombrel`, one file each. Each takes the words behind its name and returns the exit code.
#pragma once

#include <span>
#include <string>

namespace ombrel {

int cmdArchive(std::span<char* const> words);
int cmdJob(std::span<char* const> words);
int cmdRule(std::span<char* const> words);
int cmdSettings(std::span<char* const> words);

/// Whether the only word is --help.
bool asksForHelp(std::span<char* const> words);
/// Prints lines on stdout; exit code.
int showHelp(const char* usage);

/// Prints one line on stderr and returns `exitCode`.
int complain(int exitCode, const std::string& what);

}  // namespace ombrel
