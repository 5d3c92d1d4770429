// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Key/value files, on every platform.
#include <gmock/gmock.h>

#include <cstring>
#include <initializer_list>
#include <utility>
#include <vector>

#include "platform/veskcore.h"
#include "tests/contract/contract_fixture.h"
#include "tests/contract/core_handles.h"

namespace ombrel::contract {
namespace {

constexpr const char* kKeyFormat = "%s=\"%s\"\n";

class KeyValueFile : public ContractTest {
protected:
    /// The value of `key`, or "<absent>", "<unreadable>".
    static std::string valueOf(const std::string& path, const std::string& key) {
        std::vector<char> buffer(4096, '?');
        const int result = VLIBCFileGetKeyValue(path.c_str(), key.c_str(), buffer.data(), 4095, 0);
        if (result == 0) return "<absent>";
        return result < 0 ? "<unreadable>" : buffer.data();
    }
    static int set(const std::string& path, std::initializer_list<std::pair<const char*, std::string>> pairs,
                   const char* format = kKeyFormat) {
        const Hash keys = hashOf(pairs);
        return VLIBCFileSetKeys(path.c_str(), keys.get(), 0, format);
    }
};

TEST_F(KeyValueFile, DeliversTheValueWithoutItsQuotes) {
    EXPECT_EQ(valueOf(file("a.conf", "server_port=\"514\"\n"), "server_port"), "514");
}

TEST_F(KeyValueFile, TellsAnEmptyValueFromAMissingKey) {
    const std::string path = file("a.conf", "empty=\"\"\n");
    EXPECT_EQ(valueOf(path, "empty"), "");
    EXPECT_EQ(valueOf(path, "other"), "<absent>");
    EXPECT_EQ(valueOf(path, "empt"), "<absent>");
    EXPECT_EQ(valueOf(path, "EMPTY"), "<absent>");
}

TEST_F(KeyValueFile, FailsToReadAMissingFile) {
    const std::string value = valueOf(at("none.conf"), "key");
    EXPECT_TRUE(value == "<unreadable>" || value == "<absent>") << value;
}

TEST_F(KeyValueFile, CutsAValueToTheSizeGivenAndEndsItBehindThat) {
    const std::string path = file("a.conf", "key=\"abcdef\"\n");
    char buffer[] = "????????";
    EXPECT_GT(VLIBCFileGetKeyValue(path.c_str(), "key", buffer, 3, 0), 0);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(buffer[4], '?');
}

TEST_F(KeyValueFile, ReplacesTheLineOfAKeyInPlaceAndKeepsTheOthers) {
    const std::string path = file("a.conf", "# port of the receiver\na=\"1\"\n\nb=\"2\"\nc=\"3\"\n");
    EXPECT_EQ(set(path, {{"b", "new"}}), 0);
    EXPECT_EQ(bytesOf(path), "# port of the receiver\na=\"1\"\n\nb=\"new\"\nc=\"3\"\n");
}

TEST_F(KeyValueFile, AppendsNewKeys) {
    const std::string path = file("a.conf", "a=\"1\"\n");
    EXPECT_EQ(set(path, {{"b", "2"}}), 0);
    EXPECT_EQ(bytesOf(path), "a=\"1\"\nb=\"2\"\n");
}

TEST_F(KeyValueFile, MakesAMissingFile) {
    const std::string path = at("new.conf");
    EXPECT_EQ(set(path, {{"a", "1"}}), 0);
    EXPECT_EQ(bytesOf(path), "a=\"1\"\n");
}

TEST_F(KeyValueFile, MergesTwoSetsOfKeys) {
    const std::string path = at("new.conf");
    EXPECT_EQ(set(path, {{"a", "1"}, {"b", "1"}}), 0);
    EXPECT_EQ(set(path, {{"b", "2"}, {"c", "2"}}), 0);
    EXPECT_EQ(valueOf(path, "a"), "1");
    EXPECT_EQ(valueOf(path, "b"), "2");
    EXPECT_EQ(valueOf(path, "c"), "2");
}

TEST_F(KeyValueFile, RefusesAFormatThatIsNotTwoStrings) {
    const std::string path = file("a.conf", "a=\"1\"\n");
    for (const char* format : {"%s=%d\n", "%s\n", "%s=%s %s\n", "%s=%n\n", "%s=%*s\n", "%s=%s%", "plain\n"}) {
        EXPECT_LT(set(path, {{"a", "2"}}, format), 0) << format;
    }
    EXPECT_EQ(bytesOf(path), "a=\"1\"\n");
}

TEST_F(KeyValueFile, ReadsBackAValueAsLongAsTheBuffer) {
    const std::string path = at("long.conf");
    const std::string longest(4095, 'x');
    EXPECT_EQ(set(path, {{"long", longest}, {"longer", longest + "yz"}, {"behind", "ok"}}), 0);
    EXPECT_EQ(valueOf(path, "long"), longest);
    EXPECT_EQ(valueOf(path, "longer"), longest);
    EXPECT_EQ(valueOf(path, "behind"), "ok");
}

/// What a user may type, each written and read back.
class RoundTrip : public KeyValueFile,
                  public ::testing::WithParamInterface<std::pair<const char*, const char*>> {};

TEST_P(RoundTrip, ReadsBackWhatWasWritten) {
    const std::string path = file("a.conf", "before=\"1\"\nkey=\"old\"\nafter=\"2\"\n");
    ASSERT_EQ(set(path, {{"key", GetParam().second}}), 0);
    EXPECT_EQ(valueOf(path, "key"), GetParam().second);
    EXPECT_EQ(valueOf(path, "before"), "1");
    EXPECT_EQ(valueOf(path, "after"), "2");
}

INSTANTIATE_TEST_SUITE_P(Values, RoundTrip,
                         ::testing::Values(std::pair{"Empty", ""}, std::pair{"Blank", " "},
                                           std::pair{"BlanksAround", "  two words\t"}, std::pair{"Quote", "\""},
                                           std::pair{"QuotedWord", "say \"yes\""}, std::pair{"Quotes", "\"\""},
                                           std::pair{"EqualsSign", "a=b"}, std::pair{"Hash", "# no comment"},
                                           std::pair{"Percent", "100%s%n%d"}, std::pair{"Backslash", "C:\\x\\n"},
                                           std::pair{"Brackets", "[section]"}, std::pair{"Utf8", "Größe €"},
                                           std::pair{"NoUtf8", "\xff\xfe\x80"}, std::pair{"Escape", "\033[2J"},
                                           std::pair{"Shell", "$(reboot); `id` 'x'"}),
                         [](const auto& test) { return test.param.first; });

/// Keys and values that no line can hold.
struct ForbiddenKey {
    const char* name;
    const char* key;
    const char* value;
};
class ForbiddenText : public KeyValueFile, public ::testing::WithParamInterface<ForbiddenKey> {};

TEST_P(ForbiddenText, IsRefusedAndNothingIsWritten) {
    const std::string before = "a=\"1\"\nb=\"2\"\n";
    const std::string path = file("a.conf", before);
    EXPECT_LT(set(path, {{"a", "good"}, {GetParam().key, GetParam().value}}), 0);
    EXPECT_EQ(bytesOf(path), before);
    const std::string missing = at("none.conf");
    EXPECT_LT(set(missing, {{GetParam().key, GetParam().value}}), 0);
    EXPECT_FALSE(world->exists(missing));
}

INSTANTIATE_TEST_SUITE_P(Cases, ForbiddenText,
                         ::testing::Values(ForbiddenKey{"LineFeedInValue", "b", "x\nadmin=\"1"},
                                           ForbiddenKey{"LineFeedAtEndOfValue", "b", "x\n"},
                                           ForbiddenKey{"CarriageReturnInValue", "b", "x\ry"},
                                           ForbiddenKey{"LineFeedInKey", "b\nc", "x"},
                                           ForbiddenKey{"CarriageReturnInKey", "b\r", "x"},
                                           ForbiddenKey{"EmptyKey", "", "x"},
                                           ForbiddenKey{"EqualsSignInKey", "b=c", "x"}),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace ombrel::contract
