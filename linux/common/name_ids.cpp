// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/name_ids.h"

namespace ombrel {

int NameIds::prepare(const Connection& connection, const std::string& table) {
    known_.clear();
    if (const int code = select_.prepare(connection, "SELECT id FROM " + table + " WHERE name=?1")) return code;
    return insert_.prepare(connection, "INSERT INTO " + table + "(name) VALUES(?1)");
}

int NameIds::find(const Connection& connection, std::string_view name, long long& id) {
    if (const auto known = known_.find(name); known != known_.end()) {
        id = known->second;
        return 0;
    }
    if (const int code = select_.bindText(1, name)) return code;
    const int code = select_.step();
    if (code == Statement::kRow) id = select_.columnInt(0);
    select_.reset();
    if (code != Statement::kRow) {
        if (code != Statement::kDone) return code;
        if (const int failed = insert_.bindText(1, name)) return failed;
        if (const int failed = insert_.run()) return failed;
        id = connection.lastInsertId();
    }
    if (known_.size() >= kMaxKnown) known_.clear();
    known_.emplace(name, id);
    return 0;
}

}  // namespace ombrel
