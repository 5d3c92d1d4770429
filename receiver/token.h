// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The token by which the log writer knows the package's own receivers: any local user can reach its port.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ombrel {

/// Reads the token from `folder`/token, or makes a new one (64 hexadecimal digits, mode 0600) when there is
/// none. Several programs may do so at once: all get the same. Nothing, with errno set, on failure: EPERM
/// when others may read or write the file, EBADMSG when it holds no token.
std::optional<std::string> readOrMakeToken(const std::string& folder);

/// What readOrMakeToken could not do, from its errno, and what to do about it.
std::string tokenTrouble(const std::string& folder);

/// Takes the same time whatever is compared.
bool sameToken(std::string_view a, std::string_view b) noexcept;

}  // namespace ombrel
