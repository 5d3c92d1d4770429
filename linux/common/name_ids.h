// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The ids of the names in one table (id, name) of an open log database, each asked for once. Bounded: strangers
// choose the names.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

#include "linux/common/sqlite_db.h"

namespace ombrel {

class NameIds {
public:
    /// `table` is one of ours. SQLite result code.
    int prepare(const Connection& connection, const std::string& table);
    /// The id of `name`, which is entered when it is new. SQLite result code.
    int find(const Connection& connection, std::string_view name, long long& id);
    /// After a rollback ids that were entered are not there any more.
    void forget() noexcept { known_.clear(); }

private:
    struct Hash {
        using is_transparent = void;
        size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>()(text); }
    };
    static constexpr size_t kMaxKnown = 20'000;

    Statement select_;
    Statement insert_;
    std::unordered_map<std::string, long long, Hash, std::equal_to<>> known_;
};

}  // namespace ombrel
