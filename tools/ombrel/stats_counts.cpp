// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/stats_counts.h"

#include <algorithm>

namespace ombrel {

namespace {

bool isLarger(const NameCounts::Entry& a, const NameCounts::Entry& b) {
    return a.second != b.second ? a.second > b.second : a.first < b.first;
}

}  // namespace

void NameCounts::add(const std::string& name, unsigned long long rows) {
    rows_[name] += rows;
    if (rows_.size() >= 2 * mostNames_) keepLargest(mostNames_);
}

void NameCounts::add(const NameCounts& counts) {
    for (const auto& [name, rows] : counts.rows_)
        add(name, rows);
    others_ += counts.others_;
}

std::vector<NameCounts::Entry> NameCounts::largest() {
    if (rows_.size() > mostNames_) keepLargest(mostNames_);
    std::vector<Entry> entries(rows_.begin(), rows_.end());
    std::sort(entries.begin(), entries.end(), isLarger);
    return entries;
}

unsigned long long NameCounts::total() const {
    unsigned long long sum = others_;
    for (const auto& [name, rows] : rows_)
        sum += rows;
    return sum;
}

void NameCounts::keepLargest(std::size_t names) {
    std::vector<Entry> entries(rows_.begin(), rows_.end());
    const auto end = entries.begin() + static_cast<std::ptrdiff_t>(names);
    std::nth_element(entries.begin(), end, entries.end(), isLarger);
    for (auto entry = end; entry != entries.end(); ++entry) {
        others_ += entry->second;
        rows_.erase(entry->first);
    }
}

}  // namespace ombrel
