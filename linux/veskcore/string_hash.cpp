// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/veskcore/string_hash.h"

#include <algorithm>
#include <memory>

#include "linux/veskcore/guarded.h"

using ombrel::fail;
using ombrel::guarded;

void VLIBSZHASH::set(std::string_view key, std::string_view value) {
    const auto found = index_.find(key);
    if (found != index_.end()) {
        found->second->second = value;
        return;
    }
    (void)setIfAbsent(key, value);  // it is absent
}

bool VLIBSZHASH::setIfAbsent(std::string_view key, std::string_view value) {
    if (index_.contains(key)) return false;
    Pair& pair = pairs_.emplace_back(key, value);
    try {
        index_.emplace(pair.first, &pair);
    } catch (...) {
        pairs_.pop_back();
        throw;
    }
    return true;
}

const std::string* VLIBSZHASH::find(std::string_view key) const {
    const auto found = index_.find(key);
    return found == index_.end() ? nullptr : &found->second->second;
}

extern "C" {

VLIBSZHASH* VLIBCSzHashAlloc(int entries) {
    constexpr int kMostReserved = 4096;  // `entries` is a hint of the caller, not a promise
    if (entries < 0) {
        (void)fail(ombrel::kErrorInvalidArgument);
        return nullptr;
    }
    VLIBSZHASH* result = nullptr;
    (void)guarded([&] {  // a null result is the failure
        auto hash = std::make_unique<VLIBSZHASH>();
        hash->reserve(static_cast<std::size_t>(std::min(entries, kMostReserved)));
        result = hash.release();
        return 0;
    });
    return result;
}

int VLIBCSzHashSetValue(VLIBSZHASH* hash, const char* key, const char* value) {
    if (hash == nullptr || key == nullptr || value == nullptr) return fail(ombrel::kErrorInvalidArgument);
    return guarded([&] {
        hash->set(key, value);
        return 0;
    });
}

const char* VLIBCSzHashGetValue(const VLIBSZHASH* hash, const char* key) {
    if (hash == nullptr || key == nullptr) return nullptr;
    const std::string* value = hash->find(key);
    return value == nullptr ? nullptr : value->c_str();
}

void VLIBCSzHashFree(VLIBSZHASH* hash) {
    delete hash;
}

}  // extern "C"
