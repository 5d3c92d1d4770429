// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The folder that keeps the messages of one sending host. The host's name is whatever a stranger sent.
#pragma once

#include <string>
#include <string_view>

namespace ombrel {

/// Shares one database among all hosts beyond the number that get one of their own. No host name is
/// encoded to it: an encoded name has no "+" at its beginning.
constexpr std::string_view kOtherHostsFolder = "+other";

/// Longest name that encodeHostName gives, in bytes.
constexpr size_t kMaxHostFolder = 100;

/// Letters, digits, ".", "_" and "-" stay; every other byte, a leading dot, and the first letter of a name
/// that means something else in the archive folder ("local", "_ARCH", "VESKSYSLOGDB_...") become %XX. A name
/// that grows too long is cut and gets "+" and a hash of the whole. An empty name is encoded as "%00".
std::string encodeHostName(std::string_view host);

/// <archive folder>/VESKSYSLOGDB__ARCH.DB
std::string sharedDatabasePath(const std::string& archiveFolder);
/// <archive folder>/VESKSYSLOGDB__LOCALARCH.DB
std::string localDatabasePath(const std::string& archiveFolder);
/// <archive folder>/H/VESKSYSLOGDB_H.DB
std::string hostDatabasePath(const std::string& archiveFolder, const std::string& hostFolder);

}  // namespace ombrel
