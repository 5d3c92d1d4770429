// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

namespace ombrel {

namespace {

const char* codeOf(Colour colour) {
    switch (colour) {
        case Colour::kPlain:
            return "";
        case Colour::kBold:
            return "\x1b[1m";
        case Colour::kRed:
            return "\x1b[31m";
        case Colour::kGreen:
            return "\x1b[32m";
        case Colour::kYellow:
            return "\x1b[33m";
        case Colour::kCyan:
            return "\x1b[36m";
        case Colour::kDim:
            return "\x1b[2m";
    }
    return "";
}

bool wantsColours(bool isTerminal) {
    const char* noColour = std::getenv("NO_COLOR");
    const char* kind = std::getenv("TERM");
    return isTerminal && (noColour == nullptr || *noColour == '\0') && kind != nullptr &&
           std::string_view(kind) != "dumb";
}

}  // namespace

Terminal terminalOf(int fd, ColourWish wish) {
    Terminal terminal;
    terminal.isTerminal = ::isatty(fd) == 1;
    terminal.hasColours =
        wish == ColourWish::kAuto ? wantsColours(terminal.isTerminal) : wish == ColourWish::kAlways;
    winsize size{};
    if (terminal.isTerminal && ::ioctl(fd, TIOCGWINSZ, &size) == 0) {
        if (size.ws_col > 0) terminal.columns = size.ws_col;
        if (size.ws_row > 0) terminal.lines = size.ws_row;
    }
    return terminal;
}

std::string painted(const Terminal& terminal, Colour colour, std::string_view text) {
    if (!terminal.hasColours || colour == Colour::kPlain || text.empty()) return std::string(text);
    return codeOf(colour) + std::string(text) + "\x1b[0m";
}

}  // namespace ombrel
