// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Databases of the old layout, with what years of real devices leave in them. The same options make the same file,
// byte for byte, wherever it is made.
#pragma once

#include <cstdint>
#include <string>

namespace ombrel::test {

struct OldDatabaseOptions {
    long long rows = 1000;
    std::uint64_t seed = 1;
    bool plain = false;        ///< sensible rows alone, in order, of about 190 bytes a line
    bool textColumns = false;  ///< columns declared TEXT, as older files have them: numbers become texts
    int hosts = 40;
    int programs = 200;
    int messageBytes = 132;       ///< most messages are of about this size
    int longMessageEvery = 2000;  ///< one message in so many is of 60 KiB, by chance; 0: none
};

/// Replaces whatever is at `path`. Throws std::runtime_error.
void makeOldDatabase(const std::string& path, const OldDatabaseOptions& options);

}  // namespace ombrel::test
