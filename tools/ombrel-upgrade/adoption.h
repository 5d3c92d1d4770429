// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the log writer has set aside becomes an ordinary archive.
#pragma once

#include <string>

namespace ombrel {

/// The free path of an archive for the database at `path`, in its folder: by its first and last day, or by those
/// of a database that cannot be read where the rows hold anything but days. Changes nothing. Empty when all of
/// them are taken.
std::string archivePathFor(const std::string& path);

struct Adoption {
    std::string path;   ///< where the database is now
    std::string error;  ///< not empty: it is where it was
};
/// Gives the database at `path` that name, never over another file; rows that a journal holds go with it.
Adoption adoptSetAside(const std::string& path);

}  // namespace ombrel
