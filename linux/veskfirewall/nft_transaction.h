// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <string>

namespace ombrel {

/// Runs commands of nft(8) in one transaction: all of them take effect, or none.
/// @return 0; else a code of error_record.h, with the reason on one line in `reason`
int runTransaction(const std::string& commands, std::string& reason);

/// The same of a command that answers, such as "list table inet ombrel".
int askFirewall(const std::string& command, std::string& answer, std::string& reason);

}  // namespace ombrel
