// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <cstdlib>
#include <ctime>
#include <string>

namespace ombrel {

// The zone of this process for the time of a test.
class InZone {
public:
    explicit InZone(const char* zone) {
        const char* const before = std::getenv("TZ");
        if (before != nullptr) before_ = before;
        had_ = before != nullptr;
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
    InZone(const InZone&) = delete;
    InZone& operator=(const InZone&) = delete;
    ~InZone() {
        if (had_) {
            ::setenv("TZ", before_.c_str(), 1);
        } else {
            ::unsetenv("TZ");
        }
        ::tzset();
    }

private:
    std::string before_;
    bool had_ = false;
};

}  // namespace ombrel
