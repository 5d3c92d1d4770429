// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What an output can show.
#pragma once

#include <string>
#include <string_view>

namespace ombrel {

enum class Colour { kPlain, kBold, kRed, kGreen, kYellow, kCyan, kDim };

/// When to use colours: --color.
enum class ColourWish { kAuto, kAlways, kNever };

struct Terminal {
    bool isTerminal = false;  ///< a person looks at it: tables with heads, progress, what fits the width
    bool hasColours = false;
    int columns = 80;
    int lines = 24;
};

/// Asks the descriptor. Colours are for terminals alone, and not where NO_COLOR is set to anything or TERM is
/// "dumb".
Terminal terminalOf(int fd, ColourWish wish);

/// The text between the codes of a colour (ECMA-48), or as it is where there are none. The text has to be free of
/// what could steer a terminal already.
std::string painted(const Terminal& terminal, Colour colour, std::string_view text);

}  // namespace ombrel
