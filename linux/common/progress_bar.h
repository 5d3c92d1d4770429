// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The texts of a progress line, for every program that shows one. Pure.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ombrel {

/// done / total within 0..1; 0 while the total is not known.
double shareDone(unsigned long long done, unsigned long long total);

/// "[####......]  40 %" with the given number of marks; `share` within 0..1.
std::string progressBar(double share, int marks = 24);

/// "1,234,567"
std::string groupedNumber(unsigned long long number);

/// "0.5 MB", "12.3 MB", "4.7 GB"; 1 MB is a million bytes.
std::string sizeText(unsigned long long bytes);

/// "0:04", "12:34", "1:02:03"
std::string durationText(double seconds);

/// The columns that a text of UTF-8 takes at most: two for whatever is not ASCII.
std::size_t mostColumns(std::string_view text);

/// As much of the text as fits into `columns`; no character is cut apart.
std::string cutToColumns(std::string_view text, std::size_t columns);

/// The same with ".." in place of what is left out in the middle, so that both ends of a name can be read.
std::string shortenMiddle(std::string_view text, std::size_t columns);

}  // namespace ombrel
