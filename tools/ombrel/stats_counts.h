// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// How many rows each name has, in bounded memory: strangers choose the names. Pure.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace ombrel {

class NameCounts {
public:
    static constexpr std::size_t kMostNames = 100'000;

    /// `mostNames`: when there are twice as many, those with the fewest rows are summed as others.
    explicit NameCounts(std::size_t mostNames = kMostNames) : mostNames_(mostNames) {}

    void add(const std::string& name, unsigned long long rows = 1);
    /// All of those, and their others.
    void add(const NameCounts& counts);
    void addOthers(unsigned long long rows) { others_ += rows; }

    using Entry = std::pair<std::string, unsigned long long>;
    /// At most `mostNames`, largest first, then by name. What is left out is in others().
    [[nodiscard]] std::vector<Entry> largest();
    [[nodiscard]] unsigned long long others() const { return others_; }
    /// Rows of all names and of the others.
    [[nodiscard]] unsigned long long total() const;

private:
    void keepLargest(std::size_t names);

    std::size_t mostNames_;
    std::unordered_map<std::string, unsigned long long> rows_;
    unsigned long long others_ = 0;
};

}  // namespace ombrel
