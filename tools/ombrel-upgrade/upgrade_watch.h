// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What an upgrade tells while it works, and how it is asked to stop.
#pragma once

#include <string>
#include <utility>

namespace ombrel {

enum class UpgradeStage {
    kUnpacking,   ///< bytes
    kConverting,  ///< rows
    kVerifying,   ///< rows
    kPacking,     ///< bytes
};

class UpgradeWatch {
public:
    UpgradeWatch() = default;
    UpgradeWatch(const UpgradeWatch&) = delete;
    UpgradeWatch& operator=(const UpgradeWatch&) = delete;
    virtual ~UpgradeWatch() = default;

    /// After each transaction. `done` begins where an earlier run has ended.
    virtual void progress(UpgradeStage stage, long long done, long long total) = 0;
    /// Asked between two transactions.
    [[nodiscard]] virtual bool stopWanted() const = 0;
};

enum class UpgradeEnd {
    kDone,
    kStopped,  ///< as it was asked to; another run goes on from here
    kFailed,   ///< the old file is as it was
};

struct UpgradeOutcome {
    UpgradeEnd end = UpgradeEnd::kFailed;
    std::string error;   ///< kFailed: what failed, on what, what to do about it
    std::string notice;  ///< what the user should know although it is done; mostly empty
    long long rows = 0;  ///< kDone: in the new file

    static UpgradeOutcome failed(std::string error) { return {UpgradeEnd::kFailed, std::move(error), {}, 0}; }
};

}  // namespace ombrel
