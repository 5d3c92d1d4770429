// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The C library's functions that change files, at one of which a process dies or which fails. They take the place
// of the C library's own in the whole executable, its shared libraries included (SQLite), and count only while
// they are armed.
#pragma once

#include <array>
#include <atomic>

namespace ombrel::test {

enum class Fate {
    kNone,  ///< the calls are counted alone
    kDie,   ///< SIGKILL before the call
    kTear,  ///< SIGKILL in the middle of a write; before any other call
    kFail,  ///< this one call fails
    kFull,  ///< as on a disk that is full: from this call on each write fails, and each call that makes something
};

/// In memory that parent and child share: what is known of a child that has died.
struct CallRecord {
    static constexpr long long kMost = 2000;

    std::atomic<long long> calls = 0;
    std::array<bool, kMost> takesRoom{};  ///< of each call, the first one at 1: whether a full disk refuses it
    std::atomic<bool> hasRenamed = false;
    std::array<char, 64> met{};  ///< the call that met its fate
};

/// The call with this number (from 1) meets its fate. The record must stay.
void armCalls(Fate fate, long long at, int error, CallRecord& record);
void disarmCalls();

}  // namespace ombrel::test
