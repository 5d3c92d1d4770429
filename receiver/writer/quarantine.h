// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Keeps the bodies that could not be read as batches: sent again they would be unreadable again and hold up
// everything behind them, so they are put aside for a person to look at.
#pragma once

#include <string>
#include <string_view>

namespace ombrel {

class Quarantine {
public:
    /// Two files, `folder`/unreadable-batches and the same with ".old"; the older goes when the newer has
    /// grown beyond `mostBytes`.
    explicit Quarantine(std::string folder, long long mostBytes = 64LL << 20);

    /// Appends the body under a line that tells when it came, from which receiver and why it is here. On the
    /// disk when it returns. False, with errno set, when it could not be kept.
    bool keep(std::string_view receiver, std::string_view body, std::string_view reason);
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

private:
    std::string path_;
    long long mostBytes_;
};

}  // namespace ombrel
