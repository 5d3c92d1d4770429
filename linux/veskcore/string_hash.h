// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The string hash from the inside: pairs in the order in which their keys first came, so that files are
// written in the order their writer filled the hash.
#pragma once

#include <list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "platform/veskcore.h"

struct VLIBSZHASH {
    using Pair = std::pair<const std::string, std::string>;

    void set(std::string_view key, std::string_view value);
    /// Keeps an earlier value of `key`; false when there was one.
    bool setIfAbsent(std::string_view key, std::string_view value);
    [[nodiscard]] const std::string* find(std::string_view key) const;
    [[nodiscard]] const std::list<Pair>& pairs() const { return pairs_; }

    void reserve(std::size_t entries) { index_.reserve(entries); }

private:
    std::list<Pair> pairs_;                              // a list: the keys must not move
    std::unordered_map<std::string_view, Pair*> index_;  // views of the keys in `pairs_`
};
