// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The string list. Its strings are owned apart from the array that callers see, since a caller may
// overwrite an item with null (an argument vector ends so) and the string must be released all the same.
#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <vector>

#include "linux/veskcore/guarded.h"

using ombrel::fail;
using ombrel::guarded;

namespace {

struct OwningList : VLIBSZLIST {
    std::vector<char*> slots;  // `items` points here
    std::vector<std::unique_ptr<char[]>> strings;

    void makeRoom(std::size_t size) {
        slots.resize(size, nullptr);
        items = slots.data();
        capacity = static_cast<int>(size);
    }
};

void push(OwningList& list, const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    auto copy = std::make_unique<char[]>(size);
    std::memcpy(copy.get(), text, size);
    const auto count = static_cast<std::size_t>(list.count);
    if (count >= list.slots.size()) list.makeRoom(std::max<std::size_t>(8, count + count / 2));
    list.strings.push_back(std::move(copy));
    list.slots[count] = list.strings.back().get();
    ++list.count;
}

}  // namespace

extern "C" {

VLIBSZLIST* VLIBCSzListAlloc(int capacity) {
    if (capacity < 0) {
        (void)fail(ombrel::kErrorInvalidArgument);
        return nullptr;
    }
    VLIBSZLIST* result = nullptr;
    (void)guarded([&] {  // a null result is the failure
        auto list = std::make_unique<OwningList>();
        list->count = 0;
        list->makeRoom(static_cast<std::size_t>(std::max(capacity, 1)));
        result = list.release();
        return 0;
    });
    return result;
}

const char* VLIBCSzListGet(const VLIBSZLIST* list, int index) {
    if (list == nullptr || index < 0 || index >= list->count) return nullptr;
    return list->items[index];
}

int VLIBCSzListPush(VLIBSZLIST** list, const char* text) {
    if (list == nullptr || *list == nullptr || text == nullptr) return fail(ombrel::kErrorInvalidArgument);
    if ((*list)->count >= INT_MAX - INT_MAX / 3) return fail(ombrel::kErrorOutOfMemory);
    return guarded([&] {
        push(*static_cast<OwningList*>(*list), text);
        return 0;
    });
}

void VLIBCSzListFree(VLIBSZLIST* list) {
    delete static_cast<OwningList*>(list);
}

}  // extern "C"
