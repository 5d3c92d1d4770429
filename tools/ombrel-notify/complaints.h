// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the program itself has to complain of, on standard error: once for as long as it lasts.
#pragma once

#include <cerrno>
#include <cstdio>
#include <map>
#include <string>
#include <string_view>

#include "linux/common/text_escape.h"

namespace ombrel {

inline void complain(std::string_view text) {
    (void)std::fprintf(stderr, "ombrel-notify: %s\n", escapeForLine(text).c_str());
}

/// What to add to a failure of `error`: a right that is missing is said to be one.
inline const char* remedyFor(int error) {
    return error == EACCES || error == EPERM ? "; run it as root, or as a user who has this right" : "";
}

class Complaints {
public:
    /// `subject` tells complaints of different things apart; another text about the same thing is said again.
    void say(const std::string& subject, const std::string& text) {
        if (said_[subject] == text) return;
        said_[subject] = text;
        complain(text);
    }
    void over(const std::string& subject) { said_.erase(subject); }

private:
    std::map<std::string, std::string> said_;
};

}  // namespace ombrel
