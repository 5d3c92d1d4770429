// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/progress_bar.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace ombrel {

namespace {

constexpr double kLongestShown = 359'999;  // 99:59:59

template <typename... Values>
std::string formatted(const char* format, Values... values) {
    std::array<char, 64> text{};
    (void)std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

std::size_t columnsOf(char byte) {
    const auto value = static_cast<unsigned char>(byte);
    if (value < 0x80) return 1;
    return (value & 0xc0) == 0x80 ? 0 : 2;  // a continuation belongs to the byte before it
}

bool beginsCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xc0) != 0x80;
}

std::string_view lastColumns(std::string_view text, std::size_t columns) {
    std::size_t begin = text.size();
    std::size_t taken = 0;
    for (std::size_t i = text.size(); i-- > 0;) {
        taken += columnsOf(text[i]);
        if (taken > columns) break;
        if (beginsCharacter(text[i])) begin = i;
    }
    return text.substr(begin);
}

}  // namespace

double shareDone(unsigned long long done, unsigned long long total) {
    return total > 0 ? std::min(1.0, static_cast<double>(done) / static_cast<double>(total)) : 0;
}

std::string progressBar(double share, int marks) {
    const double within = std::clamp(share, 0.0, 1.0);
    const auto filled = static_cast<std::size_t>(within * marks);
    const auto rest = static_cast<std::size_t>(marks) - filled;
    const auto percent = static_cast<int>(within * 100);  // 100 only when it is
    return "[" + std::string(filled, '#') + std::string(rest, '.') + "] " + formatted("%3d %%", percent);
}

std::string groupedNumber(unsigned long long number) {
    std::string text = std::to_string(number);
    for (std::size_t i = text.size(); i > 3;) {
        i -= 3;
        text.insert(i, 1, ',');
    }
    return text;
}

std::string sizeText(unsigned long long bytes) {
    const double millions = static_cast<double>(bytes) / 1e6;
    return millions < 999.95 ? formatted("%.1f MB", millions) : formatted("%.1f GB", millions / 1e3);
}

std::string durationText(double seconds) {
    const auto whole = static_cast<long>(std::llround(std::clamp(seconds, 0.0, kLongestShown)));
    if (whole < 3600) return formatted("%ld:%02ld", whole / 60, whole % 60);
    return formatted("%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60, whole % 60);
}

std::size_t mostColumns(std::string_view text) {
    std::size_t columns = 0;
    for (const char byte : text)
        columns += columnsOf(byte);
    return columns;
}

std::string cutToColumns(std::string_view text, std::size_t columns) {
    std::size_t taken = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        taken += columnsOf(text[i]);
        if (taken > columns) return std::string(text.substr(0, i));
    }
    return std::string(text);
}

std::string shortenMiddle(std::string_view text, std::size_t columns) {
    constexpr std::string_view kLeftOut = "..";
    if (mostColumns(text) <= columns) return std::string(text);
    if (columns <= kLeftOut.size()) return cutToColumns(text, columns);
    const std::size_t left = columns - kLeftOut.size();
    return cutToColumns(text, left / 2).append(kLeftOut).append(lastColumns(text, left - left / 2));
}

}  // namespace ombrel
