// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Reads a text from the front: each step either takes what it asks for or leaves the text as it was.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace ombrel {

class TextCursor {
public:
    explicit TextCursor(std::string_view text) noexcept : rest_(text) {}

    [[nodiscard]] std::string_view rest() const noexcept { return rest_; }
    [[nodiscard]] bool atEnd() const noexcept { return rest_.empty(); }
    [[nodiscard]] bool startsWith(char c) const noexcept { return !rest_.empty() && rest_.front() == c; }
    void skip(size_t count) noexcept { rest_.remove_prefix(count); }

    bool take(char c) noexcept {
        if (!startsWith(c)) return false;
        rest_.remove_prefix(1);
        return true;
    }
    bool take(std::string_view text) noexcept {
        if (!rest_.starts_with(text)) return false;
        rest_.remove_prefix(text.size());
        return true;
    }
    /// A decimal number of `least` to `most` digits.
    std::optional<int> takeNumber(size_t least, size_t most) noexcept {
        size_t digits = 0;
        int value = 0;
        while (digits < most && digits < rest_.size() && rest_[digits] >= '0' && rest_[digits] <= '9') {
            value = value * 10 + (rest_[digits] - '0');
            ++digits;
        }
        if (digits < least) return std::nullopt;
        rest_.remove_prefix(digits);
        return value;
    }
    /// Everything up to `end`, which is dropped, or up to the end of the text.
    std::string_view takeUntil(char end) noexcept {
        const size_t position = rest_.find(end);
        const std::string_view taken = rest_.substr(0, position);
        rest_.remove_prefix(position == std::string_view::npos ? rest_.size() : position + 1);
        return taken;
    }

private:
    std::string_view rest_;
};

}  // namespace ombrel
