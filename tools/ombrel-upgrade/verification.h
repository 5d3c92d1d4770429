// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Whether the new file shows the rows of the old one, each by a checksum of the texts that its readers see.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "tools/ombrel-upgrade/old_database.h"

namespace ombrel {

enum class Comparison {
    kEqual,
    kDiffers,
    kFailed,  ///< one of the files cannot be read
};

/// What the ids in the new file's rows stand for.
struct NewKeys {
    using Map = std::map<unsigned long long, std::string>;
    Map hosts;
    Map programs;
    Map facilities;
};

class Verification {
public:
    Verification(OldDatabase& old, std::string newPath) : old_(old), newPath_(std::move(newPath)) {}

    /// The first `rows` rows were compared before.
    Comparison begin(long long rows);
    /// The next `count` rows, which differ when there are fewer.
    Comparison next(long long count);
    [[nodiscard]] long long compared() const noexcept { return compared_; }
    /// kDiffers: which row; kFailed: what cannot be read.
    [[nodiscard]] const std::string& error() const noexcept { return error_; }

private:
    Comparison failed(const std::string& path, const std::string& why);

    OldDatabase& old_;
    std::string newPath_;
    std::optional<long long> lastId_;
    NewKeys keys_;
    long long compared_ = 0;
    std::string error_;
};

}  // namespace ombrel
