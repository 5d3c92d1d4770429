// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// String hashes, string lists and the error record, on every platform.
#include <gmock/gmock.h>

#include <string>

#include "platform/veskcore.h"
#include "tests/contract/contract_fixture.h"
#include "tests/contract/core_handles.h"

namespace ombrel::contract {
namespace {

class CoreObjects : public ContractTest {};

TEST_F(CoreObjects, AHashReturnsWhatWasStoredLast) {
    const Hash hash = hashOf({{"a", "1"}, {"b", "2"}, {"a", "3"}, {"", "empty key"}, {"c", ""}});
    EXPECT_STREQ(VLIBCSzHashGetValue(hash.get(), "a"), "3");
    EXPECT_STREQ(VLIBCSzHashGetValue(hash.get(), "b"), "2");
    EXPECT_STREQ(VLIBCSzHashGetValue(hash.get(), ""), "empty key");
    EXPECT_STREQ(VLIBCSzHashGetValue(hash.get(), "c"), "");
    EXPECT_EQ(VLIBCSzHashGetValue(hash.get(), "d"), nullptr);
}

TEST_F(CoreObjects, AHashCopiesItsTextsAndGrowsBeyondItsRoom) {
    const Hash hash(VLIBCSzHashAlloc(2));
    for (int i = 0; i < 1000; ++i) {
        std::string key = "key" + std::to_string(i);
        std::string value = std::to_string(i);
        ASSERT_GE(VLIBCSzHashSetValue(hash.get(), key.c_str(), value.c_str()), 0);
        key.assign(key.size(), 'x');
    }
    EXPECT_STREQ(VLIBCSzHashGetValue(hash.get(), "key0"), "0");
    EXPECT_STREQ(VLIBCSzHashGetValue(hash.get(), "key999"), "999");
}

TEST_F(CoreObjects, NullIsAllowedToTheReleases) {
    VLIBCSzHashFree(nullptr);
    VLIBCSzListFree(nullptr);
}

TEST_F(CoreObjects, AListGrowsBeyondItsCapacity) {
    List list(2);
    for (int i = 0; i < 1000; ++i)
        ASSERT_GE(VLIBCSzListPush(list.address(), std::to_string(i).c_str()), 0);
    EXPECT_EQ(list.get()->count, 1000);
    EXPECT_GE(list.get()->capacity, 1000);
    EXPECT_STREQ(VLIBCSzListGet(list.get(), 0), "0");
    EXPECT_STREQ(VLIBCSzListGet(list.get(), 999), "999");
    EXPECT_STREQ(list.get()->items[500], "500");
}

TEST_F(CoreObjects, AListAnswersNullOutsideItself) {
    List list;
    ASSERT_GE(VLIBCSzListPush(list.address(), "only"), 0);
    EXPECT_EQ(VLIBCSzListGet(list.get(), -1), nullptr);
    EXPECT_EQ(VLIBCSzListGet(list.get(), 1), nullptr);
}

TEST_F(CoreObjects, AListWithAnItemOverwrittenByNullIsAnArgumentVector) {
    List list(1);
    for (const char* text : {"/bin/true", "--dbpath=/srv/x.DB", ""}) {
        ASSERT_GE(VLIBCSzListPush(list.address(), text), 0);
    }
    list.get()->items[2] = nullptr;
    EXPECT_STREQ(list.get()->items[0], "/bin/true");
    EXPECT_STREQ(list.get()->items[1], "--dbpath=/srv/x.DB");
    EXPECT_EQ(VLIBCSzListGet(list.get(), 2), nullptr);
}

TEST_F(CoreObjects, TheErrorRecordKeepsACopyOfTheFileName) {
    std::string name = "logarchiver";
    VLIBCErrSetEx(0x200, name.c_str(), 81);
    name.assign(name.size(), 'x');
    EXPECT_EQ(VLIBCErrGet(), 0x200);
    EXPECT_STREQ(VLIBCErrorGetFile(), "logarchiver");
    EXPECT_EQ(VLIBCErrorGetLine(), 81);
}

}  // namespace
}  // namespace ombrel::contract
