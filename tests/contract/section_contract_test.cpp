// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Sectioned files, on every platform.
#include <gmock/gmock.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/veskcore.h"
#include "tests/contract/contract_fixture.h"
#include "tests/contract/core_handles.h"

namespace ombrel::contract {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kSectionFormat = "%s=\"%s\"\n";
constexpr const char* kTwoRules =
    "[first]\nport=\"1514\"\nenable=\"yes\"\n[second]\nport=\"2514\"\nenable=\"no\"\n";

class SectionFile : public ContractTest {
protected:
    static std::string valueOf(const std::string& path, const char* section, const char* key, int size = 256) {
        std::vector<char> buffer(257, '?');
        const int result = VLIBCFileGetSectionValue(path.c_str(), section, key, buffer.data(), size);
        return result == 0 ? buffer.data() : "<not read>";
    }
    static std::vector<std::string> sections(const std::string& path) {
        List list;
        EXPECT_GE(VLIBCFileEnumSection(path.c_str(), list.address()), 0);
        return list.texts();
    }
    static int add(const std::string& path, const char* section,
                   std::initializer_list<std::pair<const char*, std::string>> pairs) {
        return VLIBCFileAddSection(path.c_str(), section, hashOf(pairs).get(), kSectionFormat);
    }
    static int replace(const std::string& path, const char* oldSection, const char* newSection,
                       std::initializer_list<std::pair<const char*, std::string>> pairs) {
        return VLIBCFileSetSection(path.c_str(), oldSection, newSection, hashOf(pairs).get(), kSectionFormat);
    }
};

TEST_F(SectionFile, ListsTheSectionsInFileOrderBehindWhatTheListHolds) {
    const std::string path = file("rules.conf", "[b]\nx=\"1\"\n[a]\n[c]\nx=\"1\"\n");
    List list;
    ASSERT_GE(VLIBCSzListPush(list.address(), "held"), 0);
    EXPECT_GE(VLIBCFileEnumSection(path.c_str(), list.address()), 0);
    EXPECT_THAT(list.texts(), ElementsAre("held", "b", "a", "c"));
}

TEST_F(SectionFile, ListsMoreSectionsThanTheListHadRoomFor) {
    const std::string path = at("rules.conf");
    std::vector<std::string> names;
    for (int i = 0; i < 40; ++i) {
        names.push_back("rule" + std::to_string(i));
        ASSERT_GE(add(path, names.back().c_str(), {{"port", std::to_string(i)}}), 0);
    }
    EXPECT_EQ(sections(path), names);
}

TEST_F(SectionFile, CannotListAMissingFile) {
    List list;
    EXPECT_LT(VLIBCFileEnumSection(at("none.conf").c_str(), list.address()), 0);
    EXPECT_THAT(list.texts(), IsEmpty());
}

TEST_F(SectionFile, ReadsTheKeysOfOneSectionIntoAHashThatHoldsOthers) {
    const std::string path = file("rules.conf", kTwoRules);
    Hash hash = hashOf({{"port", "1"}, {"kept", "yes"}});
    VLIBSZHASH* raw = hash.release();
    EXPECT_EQ(VLIBCFileGetSection(path.c_str(), "second", &raw), 2);
    hash.reset(raw);
    EXPECT_STREQ(VLIBCSzHashGetValue(hash.get(), "port"), "2514");
    EXPECT_STREQ(VLIBCSzHashGetValue(hash.get(), "enable"), "no");
    EXPECT_STREQ(VLIBCSzHashGetValue(hash.get(), "kept"), "yes");
}

TEST_F(SectionFile, MakesTheHashWhenTheCallerHasNone) {
    const std::string path = file("rules.conf", kTwoRules);
    VLIBSZHASH* raw = nullptr;
    EXPECT_EQ(VLIBCFileGetSection(path.c_str(), "first", &raw), 2);
    const Hash hash(raw);
    EXPECT_STREQ(VLIBCSzHashGetValue(hash.get(), "port"), "1514");
}

TEST_F(SectionFile, CountsNoKeysInAnAbsentSectionAndFailsOnAMissingFile) {
    const std::string path = file("rules.conf", kTwoRules);
    VLIBSZHASH* raw = VLIBCSzHashAlloc(1024);
    EXPECT_EQ(VLIBCFileGetSection(path.c_str(), "third", &raw), 0);
    EXPECT_EQ(VLIBCFileGetSection(path.c_str(), "First", &raw), 0);
    EXPECT_LT(VLIBCFileGetSection(at("none.conf").c_str(), "first", &raw), 0);
    VLIBCSzHashFree(raw);
}

TEST_F(SectionFile, AddsASectionAtTheEndWithItsKeysInTheOrderGiven) {
    const std::string path = file("rules.conf", kTwoRules);
    EXPECT_GE(add(path, "third", {{"format", "BSD"}, {"protocol", "udp"}, {"port", "3514"}}), 0);
    EXPECT_EQ(bytesOf(path),
              std::string(kTwoRules) + "[third]\nformat=\"BSD\"\nprotocol=\"udp\"\nport=\"3514\"\n");
}

TEST_F(SectionFile, MakesAMissingFileForTheFirstSection) {
    const std::string path = at("new.conf");
    EXPECT_GE(add(path, "first", {{"port", "1514"}}), 0);
    EXPECT_EQ(bytesOf(path), "[first]\nport=\"1514\"\n");
}

TEST_F(SectionFile, RefusesToAddASectionThatExists) {
    const std::string path = file("rules.conf", kTwoRules);
    EXPECT_LT(add(path, "second", {{"port", "3514"}}), 0);
    EXPECT_EQ(bytesOf(path), kTwoRules);
}

TEST_F(SectionFile, ReplacesASectionInPlaceByExactlyTheKeysGiven) {
    const std::string path = file("rules.conf", kTwoRules);
    EXPECT_GE(replace(path, "first", "first", {{"port", "3514"}, {"ssl", "yes"}}), 0);
    EXPECT_EQ(bytesOf(path), "[first]\nport=\"3514\"\nssl=\"yes\"\n[second]\nport=\"2514\"\nenable=\"no\"\n");
}

TEST_F(SectionFile, RenamesASectionInPlace) {
    const std::string path = file("rules.conf", kTwoRules);
    EXPECT_GE(replace(path, "first", "renamed", {{"port", "1514"}}), 0);
    EXPECT_THAT(sections(path), ElementsAre("renamed", "second"));
    EXPECT_EQ(valueOf(path, "renamed", "port"), "1514");
    EXPECT_EQ(valueOf(path, "renamed", "enable"), "<not read>");
    EXPECT_EQ(valueOf(path, "second", "port"), "2514");
}

TEST_F(SectionFile, RefusesToReplaceAnAbsentSectionOrToTakeTheNameOfAnother) {
    const std::string path = file("rules.conf", kTwoRules);
    EXPECT_LT(replace(path, "third", "fourth", {{"port", "1"}}), 0);
    EXPECT_LT(replace(path, "third", "third", {{"port", "1"}}), 0);
    EXPECT_LT(replace(path, "first", "second", {{"port", "1"}}), 0);
    EXPECT_EQ(bytesOf(path), kTwoRules);
    EXPECT_LT(replace(at("none.conf"), "first", "first", {{"port", "1"}}), 0);
    EXPECT_FALSE(world->exists(at("none.conf")));
}

TEST_F(SectionFile, RemovesASectionUpToTheNextOne) {
    const std::string path = file("rules.conf", kTwoRules);
    EXPECT_GE(VLIBCFileRemoveSection(path.c_str(), "first"), 0);
    EXPECT_EQ(bytesOf(path), "[second]\nport=\"2514\"\nenable=\"no\"\n");
    EXPECT_GE(VLIBCFileRemoveSection(path.c_str(), "second"), 0);
    EXPECT_EQ(bytesOf(path), "");
    EXPECT_TRUE(world->exists(path));
}

TEST_F(SectionFile, RefusesToRemoveAnAbsentSection) {
    const std::string path = file("rules.conf", kTwoRules);
    EXPECT_LT(VLIBCFileRemoveSection(path.c_str(), "third"), 0);
    EXPECT_EQ(bytesOf(path), kTwoRules);
    EXPECT_LT(VLIBCFileRemoveSection(at("none.conf").c_str(), "first"), 0);
    EXPECT_FALSE(world->exists(at("none.conf")));
}

TEST_F(SectionFile, CutsAValueToTheBufferWithItsTerminator) {
    const std::string path = file("rules.conf", "[first]\nenable=\"yes-and-more\"\n");
    char buffer[] = "?????????";
    EXPECT_EQ(VLIBCFileGetSectionValue(path.c_str(), "first", "enable", buffer, 8), 0);
    EXPECT_STREQ(buffer, "yes-and");
    EXPECT_EQ(buffer[8], '?');
}

TEST_F(SectionFile, DoesNotReadAKeyOfAnotherSection) {
    const std::string path = file("rules.conf", "[first]\nport=\"1\"\n[second]\nenable=\"no\"\n");
    EXPECT_EQ(valueOf(path, "first", "enable"), "<not read>");
    EXPECT_EQ(valueOf(path, "second", "port"), "<not read>");
    EXPECT_EQ(valueOf(path, "third", "port"), "<not read>");
    EXPECT_EQ(valueOf(at("none.conf"), "first", "port"), "<not read>");
}

TEST_F(SectionFile, SetsOneValueAndKeepsTheOthers) {
    const std::string path = file("rules.conf", kTwoRules);
    EXPECT_GE(VLIBCFileSetSectionValue(path.c_str(), "first", "enable", "no"), 0);
    EXPECT_GE(VLIBCFileSetSectionValue(path.c_str(), "first", "ssl", "yes"), 0);
    EXPECT_EQ(bytesOf(path),
              "[first]\nport=\"1514\"\nenable=\"no\"\nssl=\"yes\"\n[second]\nport=\"2514\"\nenable=\"no\"\n");
}

TEST_F(SectionFile, MakesTheSectionOfANewValue) {
    const std::string path = file("rules.conf", kTwoRules);
    EXPECT_GE(VLIBCFileSetSectionValue(path.c_str(), "third", "enable", "yes"), 0);
    EXPECT_EQ(valueOf(path, "third", "enable"), "yes");
    EXPECT_GE(VLIBCFileSetSectionValue(at("new.conf").c_str(), "only", "enable", "yes"), 0);
    EXPECT_EQ(valueOf(at("new.conf"), "only", "enable"), "yes");
}

/// Section names that users type. All of them must come back as they went in.
class SectionName : public SectionFile,
                    public ::testing::WithParamInterface<std::pair<const char*, const char*>> {};

TEST_P(SectionName, ComesBackAsItWentIn) {
    const std::string path = file("rules.conf", kTwoRules);
    const char* name = GetParam().second;
    ASSERT_GE(add(path, name, {{"port", "3514"}}), 0);
    EXPECT_THAT(sections(path), ElementsAre("first", "second", name));
    EXPECT_EQ(valueOf(path, name, "port"), "3514");
    EXPECT_GE(VLIBCFileRemoveSection(path.c_str(), name), 0);
    EXPECT_EQ(bytesOf(path), kTwoRules);
}

INSTANTIATE_TEST_SUITE_P(Names, SectionName,
                         ::testing::Values(std::pair{"OtherCase", "First"}, std::pair{"Words", "my rule 2"},
                                           std::pair{"BlanksAround", " x "}, std::pair{"OpeningBracket", "a[0"},
                                           std::pair{"Hash", "#1"}, std::pair{"EqualsSign", "a=b"},
                                           std::pair{"Quotes", "\"q\""}, std::pair{"Percent", "%s%n"},
                                           std::pair{"Path", "../../etc/passwd"}, std::pair{"Utf8", "Büro"}),
                         [](const auto& test) { return test.param.first; });

/// A port declaration of that name must be possible, and its length is bounded.
class LongSectionName : public SectionFile {
protected:
    const std::string longest = std::string(255, 'n');
    const std::string tooLong = std::string(256, 'n');
    static constexpr int kForbiddenText = 0x202;
};

TEST_F(LongSectionName, IsTakenUpTo255Bytes) {
    const std::string path = at("rules.conf");
    EXPECT_GE(add(path, longest.c_str(), {{"port", "1"}}), 0);
    EXPECT_EQ(valueOf(path, longest.c_str(), "port"), "1");
    EXPECT_GE(replace(path, longest.c_str(), "short", {{"port", "2"}}), 0);
    EXPECT_GE(replace(path, "short", longest.c_str(), {{"port", "3"}}), 0);
    EXPECT_GE(VLIBCFileRemoveSection(path.c_str(), longest.c_str()), 0);
    EXPECT_GE(VLIBCFileSetSectionValue(path.c_str(), longest.c_str(), "port", "4"), 0);
    EXPECT_EQ(bytesOf(path), "[" + longest + "]\nport=\"4\"\n");
}

TEST_F(LongSectionName, IsRefusedBeyondThem) {
    const std::string path = file("rules.conf", kTwoRules);
    const auto refused = [&](int result) {
        EXPECT_LT(result, 0);
        EXPECT_EQ(VLIBCErrGet(), kForbiddenText);
        EXPECT_EQ(bytesOf(path), kTwoRules);
        VLIBCErrSetEx(0, "", 0);
    };
    refused(add(path, tooLong.c_str(), {{"port", "1"}}));
    refused(replace(path, "first", tooLong.c_str(), {{"port", "1"}}));
    refused(VLIBCFileSetSectionValue(path.c_str(), tooLong.c_str(), "port", "1"));
    EXPECT_LT(add(at("new.conf"), tooLong.c_str(), {{"port", "1"}}), 0);
    EXPECT_FALSE(world->exists(at("new.conf")));
}

TEST_F(LongSectionName, ThatStandsInAFileCanBeReadChangedAndRemoved) {
    const std::string path = file("rules.conf", "[" + tooLong + "]\nport=\"1\"\n" + kTwoRules);
    EXPECT_THAT(sections(path), ElementsAre(tooLong, "first", "second"));
    VLIBSZHASH* raw = nullptr;
    EXPECT_EQ(VLIBCFileGetSection(path.c_str(), tooLong.c_str(), &raw), 1);
    VLIBCSzHashFree(raw);
    EXPECT_GE(VLIBCFileSetSectionValue(path.c_str(), tooLong.c_str(), "port", "2"), 0);
    EXPECT_EQ(valueOf(path, tooLong.c_str(), "port"), "2");
    EXPECT_GE(replace(path, tooLong.c_str(), "short", {{"port", "3"}}), 0);
    EXPECT_THAT(sections(path), ElementsAre("short", "first", "second"));
    const std::string again = file("again.conf", "[" + tooLong + "]\nport=\"1\"\n" + kTwoRules);
    EXPECT_GE(VLIBCFileRemoveSection(again.c_str(), tooLong.c_str()), 0);
    EXPECT_EQ(bytesOf(again), kTwoRules);
}

struct ForbiddenSection {
    const char* name;
    const char* section;
    const char* key;
    const char* value;
};
class ForbiddenSectionText : public SectionFile, public ::testing::WithParamInterface<ForbiddenSection> {};

TEST_P(ForbiddenSectionText, IsRefusedByEveryChange) {
    const auto& [name, section, key, value] = GetParam();
    const std::string path = file("rules.conf", kTwoRules);
    EXPECT_LT(add(path, section, {{key, value}}), 0);
    EXPECT_LT(replace(path, "first", section, {{key, value}}), 0);
    EXPECT_LT(VLIBCFileSetSectionValue(path.c_str(), section, key, value), 0);
    EXPECT_EQ(bytesOf(path), kTwoRules);
}

INSTANTIATE_TEST_SUITE_P(Cases, ForbiddenSectionText,
                         ::testing::Values(ForbiddenSection{"EmptyName", "", "port", "1"},
                                           ForbiddenSection{"BracketInName", "a]b", "port", "1"},
                                           ForbiddenSection{"LineFeedInName", "a\n[b", "port", "1"},
                                           ForbiddenSection{"CarriageReturnInName", "a\r", "port", "1"},
                                           ForbiddenSection{"LineFeedInValue", "third", "port", "1\n[evil]"},
                                           ForbiddenSection{"CarriageReturnInValue", "third", "port", "1\r"},
                                           ForbiddenSection{"LineFeedInKey", "third", "po\nrt", "1"},
                                           ForbiddenSection{"EmptyKey", "third", "", "1"},
                                           ForbiddenSection{"EqualsSignInKey", "third", "a=b", "1"}),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace ombrel::contract
