// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The frame of a batch and the receipt ids in it.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "receiver/message/batch_frame.h"
#include "receiver/message/receipt_ids.h"

namespace ombrel {
namespace {

TEST(ReadBatch, GivesEveryLineWithItsBytes) {
    std::vector<BatchLine> lines;
    std::string reason;
    const std::string body(
        "0a0b0c0d@000000000000000f 1795237123 192.0.2.1 3 a\nb\n"
        "0a0b0c0d@ffffffffffffffff 0 2001:db8::1 0 \n");
    ASSERT_TRUE(readBatch(body, lines, reason)) << reason;
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].id, (ReceiptId{0x0a0b0c0d, 15}));
    EXPECT_EQ(lines[0].received, 1795237123);
    EXPECT_EQ(lines[0].sender, "192.0.2.1");
    EXPECT_EQ(lines[0].text, "a\nb");
    EXPECT_EQ(lines[1].id, (ReceiptId{0x0a0b0c0d, UINT64_MAX}));
    EXPECT_EQ(lines[1].text, "");
}

TEST(ReadBatch, TakesATextWithoutLengthUpToItsLineBreak) {
    std::vector<BatchLine> lines;
    std::string reason;
    const std::string body(
        "0a0b0c0d@0000000000000001 1 192.0.2.1 - <13>a - 3 b\r\n"
        "0a0b0c0d@0000000000000002 1 192.0.2.1 - \n"
        "0a0b0c0d@0000000000000003 1 192.0.2.1 3 c\nd\n"
        "0a0b0c0d@0000000000000004 1 192.0.2.1 - - \n");
    ASSERT_TRUE(readBatch(body, lines, reason)) << reason;
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0].text, "<13>a - 3 b\r");
    EXPECT_EQ(lines[1].text, "");
    EXPECT_EQ(lines[2].text, "c\nd");
    EXPECT_EQ(lines[3].text, "- ");
}

TEST(ReadBatch, CannotBeForgedByALineBreakInAMessage) {
    const std::string forged = "x\n0a0b0c0d@0000000000000010 1 192.0.2.9 1 y";
    const std::string body =
        "0a0b0c0d@000000000000000f 1 192.0.2.1 " + std::to_string(forged.size()) + " " + forged + "\n";
    std::vector<BatchLine> lines;
    std::string reason;
    ASSERT_TRUE(readBatch(body, lines, reason));
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].text, forged);
}

struct Broken {
    const char* name;
    const char* body;
    const char* reason;
};
void PrintTo(const Broken& one, std::ostream* out) {
    *out << one.name;
}

class BrokenBatch : public testing::TestWithParam<Broken> {};

TEST_P(BrokenBatch, IsRefusedWithTheReason) {
    const std::string good = "0a0b0c0d@0000000000000001 1 192.0.2.1 1 x\n";
    std::vector<BatchLine> lines;
    std::string reason;
    EXPECT_FALSE(readBatch(good + GetParam().body, lines, reason));
    EXPECT_EQ(reason, std::string(GetParam().reason) + " of line 2 (byte 42) cannot be read");
}

INSTANTIATE_TEST_SUITE_P(
    All, BrokenBatch,
    testing::Values(Broken{"NoId", "hello\n", "the receipt id"},
                    Broken{"ShortId", "0a0b0c0@0000000000000001 1 192.0.2.1 1 x\n", "the receipt id"},
                    Broken{"ShortNumber", "0a0b0c0d@000000000000001 1 192.0.2.1 1 x\n", "the receipt id"},
                    Broken{"NegativeTime", "0a0b0c0d@0000000000000001 -1 192.0.2.1 1 x\n", "the receive time"},
                    Broken{"NoSender", "0a0b0c0d@0000000000000001 1  1 x\n", "the sender's address"},
                    Broken{"OddSender", "0a0b0c0d@0000000000000001 1 ../x 1 x\n", "the sender's address"},
                    Broken{"NoLength", "0a0b0c0d@0000000000000001 1 192.0.2.1 x\n", "the length"},
                    Broken{"HugeLength", "0a0b0c0d@0000000000000001 1 192.0.2.1 99999999999999999999 x\n",
                           "the length"},
                    Broken{"TooLong", "0a0b0c0d@0000000000000001 1 192.0.2.1 2 x\n",
                           "the text, which is shorter than its length,"},
                    Broken{"CutOff", "0a0b0c0d@0000000000000001 1 192.0.2.1 9 x\n",
                           "the text, which is shorter than its length,"},
                    Broken{"NothingBehindTheDash", "0a0b0c0d@0000000000000001 1 192.0.2.1 -\n", "the length"},
                    Broken{"NoLineBreak", "0a0b0c0d@0000000000000001 1 192.0.2.1 - x", "the end of the line"},
                    Broken{"TooShort", "0a0b0c0d@0000000000000001 1 192.0.2.1 1 xy\n", "the end of the line"}),
    [](const auto& row) { return std::string(row.param.name); });

ReceiptIds idsOf(const std::vector<ReceiptId>& all) {
    ReceiptIds ids;
    for (const ReceiptId& id : all)
        ids.add(id);
    ids.seal();
    return ids;
}

TEST(ReceiptIds, HoldWhatWasAddedInAnyOrderAndNothingElse) {
    const ReceiptIds ids = idsOf({{1, 5}, {1, 6}, {1, 3}, {2, 6}, {1, 6}, {1, 4}, {0, 9}});
    for (const ReceiptId& id : {ReceiptId{1, 3}, {1, 4}, {1, 5}, {1, 6}, {2, 6}, {0, 9}})
        EXPECT_TRUE(ids.contains(id)) << id.host << "@" << id.number;
    for (const ReceiptId& id : {ReceiptId{1, 2}, {1, 7}, {2, 5}, {2, 7}, {0, 8}, {3, 6}})
        EXPECT_FALSE(ids.contains(id)) << id.host << "@" << id.number;
}

TEST(ReceiptIds, OverlapWhenTheyShareOne) {
    const ReceiptIds ids = idsOf({{1, 10}, {1, 11}, {1, 12}});
    EXPECT_TRUE(ids.overlaps(idsOf({{1, 11}})));
    EXPECT_TRUE(idsOf({{1, 11}}).overlaps(ids));
    EXPECT_TRUE(ids.overlaps(idsOf({{1, 12}, {1, 13}})));
    EXPECT_FALSE(ids.overlaps(idsOf({{1, 13}})));
    EXPECT_FALSE(ids.overlaps(ReceiptIds()));
}

TEST(ReceiptIds, PackAFullBatchInARowInOneRun) {
    ReceiptIds ids;
    for (std::uint64_t number = 1000; number < 1000 + kFullBatchLines; ++number)
        ids.add({0xfffffffe, number});
    ids.seal();
    EXPECT_EQ(ids.pack().size(), 16U);
    const auto again = ReceiptIds::unpack(ids.pack());
    ASSERT_TRUE(again);
    EXPECT_TRUE(again->contains({0xfffffffe, 1000}));
    EXPECT_TRUE(again->contains({0xfffffffe, 999 + kFullBatchLines}));
    EXPECT_FALSE(again->contains({0xfffffffe, 1000 + kFullBatchLines}));
}

TEST(ReceiptIds, OfOddLengthAreNotUnpacked) {
    EXPECT_FALSE(ReceiptIds::unpack("12345"));
    EXPECT_TRUE(ReceiptIds::unpack("")->empty());
}

}  // namespace
}  // namespace ombrel
