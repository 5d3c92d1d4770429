// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/vesksyslog/text_finder.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <algorithm>

#include "linux/common/severity_text.h"

namespace ombrel {

namespace {

constexpr unsigned char kCaseBit = 0x20;

/// How often a byte is seen in log messages, roughly: the later in this line, the more often.
int commonness(char c) {
    constexpr std::string_view kByRarity = "qzjxkvwybpg7689543mufhl2d0c1nr:-./satoie ";
    const std::size_t place = kByRarity.find(c);
    return place == std::string_view::npos ? -1 : static_cast<int>(place);
}

}  // namespace

TextFinder::TextFinder(std::string_view wanted) : wanted_(wanted) {
    std::transform(wanted_.begin(), wanted_.end(), wanted_.begin(), foldCase);
    std::size_t rare = 0;
    for (std::size_t i = 1; i < wanted_.size(); ++i) {
        if (commonness(wanted_[i]) < commonness(wanted_[rare])) rare = i;
    }
    std::size_t other = rare == 0 && wanted_.size() > 1 ? 1 : 0;
    for (std::size_t i = 0; i < wanted_.size(); ++i) {
        if (i != rare && commonness(wanted_[i]) < commonness(wanted_[other])) other = i;
    }
    if (wanted_.empty()) return;
    rare_ = signAt(rare);
    other_ = signAt(other);
}

TextFinder::Sign TextFinder::signAt(std::size_t place) const {
    const char c = wanted_[place];
    const bool isLetter = c >= 'a' && c <= 'z';
    return {place, static_cast<unsigned char>(c), isLetter ? kCaseBit : static_cast<unsigned char>(0)};
}

bool TextFinder::isAt(const char* text) const noexcept {
    return std::equal(wanted_.begin(), wanted_.end(), text, [](char a, char b) { return a == foldCase(b); });
}

/// One place after the other: `places` of them from `first` on.
bool TextFinder::isBehind(const char* text, std::size_t first, std::size_t places) const noexcept {
    for (std::size_t i = first; i < places; ++i) {
        const auto byte = static_cast<unsigned char>(text[i + rare_.place]);
        if ((byte | rare_.ignored) == rare_.byte && isAt(text + i)) return true;
    }
    return false;
}

#ifdef __SSE2__

// Sixteen places at a time, by the two bytes that are seen least.
bool TextFinder::isIn(std::string_view text) const noexcept {
    constexpr std::size_t kBlock = 16;
    if (wanted_.empty()) return true;
    if (text.size() < wanted_.size()) return false;
    const auto filled = [](unsigned char byte) { return _mm_set1_epi8(static_cast<char>(byte)); };
    const __m128i rareByte = filled(rare_.byte);
    const __m128i rareIgnored = filled(rare_.ignored);
    const __m128i otherByte = filled(other_.byte);
    const __m128i otherIgnored = filled(other_.ignored);
    const std::size_t places = text.size() - wanted_.size() + 1;
    std::size_t at = 0;
    for (; at + kBlock <= places; at += kBlock) {
        const char* const block = text.data() + at;
        const __m128i rare = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + rare_.place));
        const __m128i other = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + other_.place));
        const __m128i both = _mm_and_si128(_mm_cmpeq_epi8(_mm_or_si128(rare, rareIgnored), rareByte),
                                           _mm_cmpeq_epi8(_mm_or_si128(other, otherIgnored), otherByte));
        for (auto bits = static_cast<unsigned>(_mm_movemask_epi8(both)); bits != 0; bits &= bits - 1) {
            if (isAt(block + __builtin_ctz(bits))) return true;
        }
    }
    return isBehind(text.data(), at, places);
}

#else

bool TextFinder::isIn(std::string_view text) const noexcept {
    if (wanted_.empty()) return true;
    return text.size() >= wanted_.size() && isBehind(text.data(), 0, text.size() - wanted_.size() + 1);
}

#endif

}  // namespace ombrel
