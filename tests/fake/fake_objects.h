// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the fake platform's opaque handles hold.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/veskcore.h"
#include "platform/vesksdk.h"
#include "tests/fake/settings_text.h"

namespace ombrel::test {
struct FakeDatabase;
}

struct VLIBSZHASH {
    ombrel::test::KeyValues values;
};

struct VESKDBCONN {
    std::string path;
    ombrel::test::FakeDatabase* database;
};

struct VESKDBRESULT {
    std::vector<std::map<std::string, std::string>> rows;
    int next = 0;
};

namespace ombrel::test {

/// The texts live beside the item array: a caller may overwrite an item without owning it.
struct FakeList : VLIBSZLIST {
    explicit FakeList(int wanted) : VLIBSZLIST{0, wanted, nullptr} {}
    FakeList(const FakeList& other) : VLIBSZLIST{other.count, other.capacity, nullptr}, pointers(other.pointers) {
        texts = other.texts;
        items = pointers.data();
    }
    FakeList& operator=(const FakeList&) = delete;
    ~FakeList() = default;

    void push(const std::string& text);

    std::vector<std::shared_ptr<std::string>> texts;
    std::vector<char*> pointers;
};

/// Appends to a list that the platform may move: the list is a new object afterwards.
void pushMoving(VLIBSZLIST** list, const std::vector<std::string>& texts);

struct FakeShare : VESKSHARE {
    std::string text;
};

}  // namespace ombrel::test
