// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The values that rows of the old layout are made of.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "linux/common/day_text.h"

namespace ombrel::test {

/// Numbers by chance, the same for a seed on every machine (SplitMix64).
class Chance {
public:
    explicit Chance(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next() noexcept;
    /// 0 .. limit-1
    std::uint64_t below(std::uint64_t limit) noexcept { return next() % limit; }
    bool oneIn(std::uint64_t many) noexcept { return below(many) == 0; }
    template <class Array>
    auto oneOf(const Array& choices) noexcept -> decltype(choices[0]) {
        return choices[below(std::size(choices))];
    }

private:
    std::uint64_t state_;
};

/// What one column of one row holds.
struct OldValue {
    enum class Kind { kText, kNull, kInteger, kReal, kBlob };
    Kind kind = Kind::kText;
    std::string bytes;  ///< of a text or a blob
    long long number = 0;
    double real = 0;

    void setText(std::string_view text) {
        kind = Kind::kText;
        bytes.assign(text);
    }
};

/// A text as no well-meaning device sends it, or something that is no text at all.
void makeOdd(OldValue& value, Chance& chance);
/// Severities in all spellings that were ever stored, and some that are none.
void makeSeverity(OldValue& value, Chance& chance);
/// A moment on the wall, in seconds since 1970-01-01 00:00 there.
void makeDay(OldValue& value, std::int64_t wall, DayText& day);
void makeTime(OldValue& value, std::int64_t wall);
/// What stands where a date or a time should.
void makeOddDay(OldValue& value, Chance& chance);
void makeOddTime(OldValue& value, Chance& chance);
/// A moment of a device with a wrong clock.
std::int64_t wrongClock(Chance& chance) noexcept;
/// A moment of an hour that occurs twice or never, in Europe or in America.
std::int64_t clockChange(Chance& chance) noexcept;

}  // namespace ombrel::test
