// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What is looked at again and again: on the whole terminal, or as a line each time.
#pragma once

#include <functional>
#include <string>

#include "tools/ombrel/terminal.h"

namespace ombrel {

struct LiveView {
    std::function<void()> look;                        ///< takes everything in anew
    std::function<std::string(const Terminal&)> draw;  ///< what was taken in, in at most so many lines
};

/// Shows the view on the terminal until q or Ctrl-C is pressed, a signal asks for the end, or the terminal is
/// gone. It is drawn anew every so many seconds, and at once when the terminal has got another size; the terminal
/// is left as it was, also while the program is suspended.
/// @return 0, or the errno why it cannot be done
int runLive(const LiveView& view, const Terminal& terminal, long long everySeconds);

/// Does the step at once and then every so many seconds, until it wants no more or nobody reads standard output
/// any more.
/// @return 0, or the errno why it cannot be done
int runEvery(long long everySeconds, const std::function<bool()>& step);

}  // namespace ombrel
