// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Whether one archive is what it should be. All of it is read; nothing is changed.
#pragma once

#include <functional>
#include <string>

#include "tools/ombrel/log_files.h"

namespace ombrel {

struct ArchiveFinding {
    enum class State {
        kGood,
        kWrong,    ///< it is not what it should be
        kUnknown,  ///< it could not be read
    };
    State state = State::kGood;
    std::string what;    ///< "5,000 rows, 2024-03-03 to 2024-03-09", or what is wrong
    std::string advice;  ///< of one that is not good

    [[nodiscard]] bool isGood() const { return state == State::kGood; }
};

/// A database or a ZIP file. `onBytes` is told how many bytes of a ZIP file have been read.
ArchiveFinding checkArchive(const LogFile& archive, const std::function<void(long long)>& onBytes = {});

}  // namespace ombrel
