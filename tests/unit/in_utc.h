// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The zone of the tests that print times.
#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace ombrel::test {

/// The machine's zone is UTC as long as this object lives.
class InUtc {
public:
    InUtc() {
        if (const char* zone = std::getenv("TZ")) before_ = zone;
        set("UTC0");
    }
    ~InUtc() {
        if (before_) {
            set(before_->c_str());
        } else {
            (void)::unsetenv("TZ");
            ::tzset();
        }
    }
    InUtc(const InUtc&) = delete;
    InUtc& operator=(const InUtc&) = delete;

private:
    static void set(const char* zone) {
        (void)::setenv("TZ", zone, 1);
        ::tzset();
    }
    std::optional<std::string> before_;
};

}  // namespace ombrel::test
