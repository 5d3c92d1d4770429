// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/regex_literals.h"

#include <re2/filtered_re2.h>

#include <algorithm>
#include <numeric>

namespace ombrel {

namespace {

constexpr int kLeastLength = 3;
constexpr std::size_t kMostLiterals = 4;

bool isAscii(char c) {
    return static_cast<unsigned char>(c) < 0x80;
}

// RE2 takes the Kelvin sign for a k and the long s for an s when the case does not matter, or when a class names
// them; a comparison of ASCII letters does not.
bool mayFoldIntoAscii(const std::string& pattern) {
    if (!std::all_of(pattern.begin(), pattern.end(), isAscii)) return true;
    for (const char* sign : {"(?", "\\x", "\\p", "\\P"}) {
        if (pattern.find(sign) != std::string::npos) return true;
    }
    return false;
}

/// The longest stretch of characters that compare as RE2 compares them.
std::string safePart(const std::string& atom, bool mayFold) {
    std::string longest;
    std::string part;
    for (const char c : atom) {
        const bool isSafe = isAscii(c) && !(mayFold && (c == 'k' || c == 's'));
        part = isSafe ? part + c : "";
        if (part.size() > longest.size()) longest = part;
    }
    return longest;
}

}  // namespace

// The filter tells whether a text may match from the atoms that it has. One without which it cannot, although all
// others are there, is in each match.
std::vector<std::string> requiredLiterals(const std::string& pattern, const RE2::Options& options) {
    re2::FilteredRE2 filter(kLeastLength);
    int id = 0;
    std::vector<std::string> atoms;
    if (filter.Add(pattern, options, &id) != RE2::NoError) return {};
    filter.Compile(&atoms);
    std::vector<std::string> literals;
    for (std::size_t i = 0; i < atoms.size(); ++i) {
        std::vector<int> others(atoms.size());
        std::iota(others.begin(), others.end(), 0);
        others.erase(others.begin() + static_cast<std::ptrdiff_t>(i));
        std::vector<int> possible;
        filter.AllPotentials(others, &possible);
        if (!possible.empty()) continue;
        std::string part = safePart(atoms[i], mayFoldIntoAscii(pattern));
        if (part.size() >= kLeastLength) literals.push_back(std::move(part));
    }
    std::stable_sort(literals.begin(), literals.end(),
                     [](const std::string& a, const std::string& b) { return a.size() > b.size(); });
    if (literals.size() > kMostLiterals) literals.resize(kMostLiterals);
    return literals;
}

}  // namespace ombrel
