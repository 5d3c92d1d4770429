// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Names of archives and of the files that travel with them.
#pragma once

#include <string>

/// `path` without its last three characters, whatever they are (the length of ".DB"); a shorter path is kept.
std::string withoutExtension(const std::string& path);

/// The companion file of a database: its name without the last three characters, "_" and `tag`.
std::string DBSuffixNameGet(const std::string& name, const std::string& tag);
