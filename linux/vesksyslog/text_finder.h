// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Looks for a text in others, whatever the case of ASCII letters. Bytes that are no ASCII letters are compared as
// they are, so invalid UTF-8 does no harm. A search in millions of messages spends its time here.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ombrel {

class TextFinder {
public:
    explicit TextFinder(std::string_view wanted);
    [[nodiscard]] bool isIn(std::string_view text) const noexcept;

private:
    /// A byte of the text, in both cases: a byte that has `ignored` set and is `byte` is one of them.
    struct Sign {
        std::size_t place = 0;
        unsigned char byte = 0;
        unsigned char ignored = 0;  // the bit that tells the cases of a letter apart; 0 of what is no letter
    };
    [[nodiscard]] Sign signAt(std::size_t place) const;
    [[nodiscard]] bool isAt(const char* text) const noexcept;
    [[nodiscard]] bool isBehind(const char* text, std::size_t first, std::size_t places) const noexcept;

    std::string wanted_;  // in lower case
    Sign rare_;           // the two that are likely to be seen least
    Sign other_;
};

}  // namespace ombrel
