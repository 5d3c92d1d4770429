// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The hash and the list of the platform as tests use them: owned, filled and read in one line.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/veskcore.h"

namespace ombrel::contract {

struct HashFree {
    void operator()(VLIBSZHASH* hash) const noexcept { VLIBCSzHashFree(hash); }
};
using Hash = std::unique_ptr<VLIBSZHASH, HashFree>;

inline Hash hashOf(std::initializer_list<std::pair<const char*, std::string>> pairs) {
    Hash hash(VLIBCSzHashAlloc(1024));
    for (const auto& [key, value] : pairs) {
        if (VLIBCSzHashSetValue(hash.get(), key, value.c_str()) < 0) return nullptr;
    }
    return hash;
}

/// A list may move when it grows, so its owner keeps the pointer, not the object.
class List {
public:
    explicit List(int capacity = 4) : list_(VLIBCSzListAlloc(capacity)) {}
    ~List() { VLIBCSzListFree(list_); }
    List(const List&) = delete;
    List& operator=(const List&) = delete;

    VLIBSZLIST** address() { return &list_; }
    VLIBSZLIST* get() { return list_; }
    [[nodiscard]] std::vector<std::string> texts() const {
        std::vector<std::string> result;
        for (int i = 0; i < list_->count; ++i) {
            const char* text = VLIBCSzListGet(list_, i);
            result.emplace_back(text == nullptr ? "<null>" : text);
        }
        return result;
    }

private:
    VLIBSZLIST* list_;
};

}  // namespace ombrel::contract
