// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The turnstile of a live database: a flock on the folder that holds it. SQLite's own locks are not fair,
// and a busy writer would keep a mover waiting for minutes. So a writer passes the turnstile before each
// transaction, and whoever wants the file for itself holds it meanwhile. It orders who comes next and
// protects no data: where the file system has no flock on folders, everyone passes.
//
// Order: the turnstile before SQLite's lock, never the other way round.
#pragma once

#include <chrono>
#include <string>

#include "linux/common/fd.h"
#include "linux/common/path_parts.h"

namespace ombrel {

enum class TurnstileResult {
    kEntered,
    kTimeout,
    kFailed,  ///< the folder cannot be opened; errno says why
};

class Turnstile {
public:
    Turnstile() = default;

    /// Opens the folder of `databasePath`. False, with errno set, when there is no such folder.
    bool open(const std::string& databasePath) noexcept;
    [[nodiscard]] bool isOpen() const noexcept { return static_cast<bool>(folder_); }

    /// For a writer, before each transaction: waits until nobody holds the turnstile, and goes on.
    TurnstileResult pass(std::chrono::milliseconds timeout) noexcept;
    /// For a mover: holds the turnstile until leave() or the end of this object.
    TurnstileResult hold(std::chrono::milliseconds timeout) noexcept;
    void leave() noexcept;

private:
    TurnstileResult lock(int operation, std::chrono::milliseconds timeout) noexcept;

    Fd folder_;
};

}  // namespace ombrel
