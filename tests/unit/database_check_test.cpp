// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Small things that commands share: whether a database is whole, and sizes in words.
#include "tools/ombrel/database_check.h"

#include "linux/common/error_record.h"
#include "tests/fake/platform_test.h"
#include "tools/ombrel/size_words.h"

namespace ombrel::test::database_check {

namespace {

constexpr const char* kCheckedDatabase = "/volume1/logs/x.DB";
constexpr const char* kCheckStatement = "PRAGMA quick_check(1)";

class CheckDatabase : public PlatformTest {
protected:
    std::string check() {
        const DatabaseCheck found = checkDatabase(kCheckedDatabase);
        const char* states[] = {"good", "damaged", "unknown"};
        return states[static_cast<int>(found.state)] + (found.what.empty() ? "" : ": " + found.what);
    }
    void answer(const std::string& text) { platform.sqlRows[kCheckStatement] = {{{"quick_check", text}}}; }
    void failWith(const std::string& call, int code) {
        platform.calls.onFailure = [this, code] { platform.error.code = code; };
        platform.failCall(call);
    }
};

TEST_F(CheckDatabase, IsWhatTheDatabaseSaysOfItself) {
    platform.addDatabase(kCheckedDatabase);
    answer("ok");
    EXPECT_EQ(check(), "good");
    answer("row 3 missing from index");
    EXPECT_EQ(check(), "damaged: row 3 missing from index");
    platform.sqlRows[kCheckStatement] = {};
    EXPECT_EQ(check(), "unknown: its check gives no answer");
}

TEST_F(CheckDatabase, TellsDamageFromWhatCannotBeTold) {
    platform.addDatabase(kCheckedDatabase);
    answer("ok");
    failWith("VESKDBConnect", fromSqlite(26));
    EXPECT_EQ(check(), "damaged: it is no database");
    failWith("VESKDBExecute", fromSqlite(11 | (1 << 8)));
    EXPECT_EQ(check(), "damaged: its pages contradict each other");
    failWith("VESKDBConnect", fromErrno(EACCES));
    EXPECT_EQ(check(), "unknown: it cannot be opened (Permission denied)");
    failWith("VESKDBExecute", fromSqlite(5));
    EXPECT_EQ(check(), "unknown: it cannot be read");
    failWith("VESKDBFetchRow", 0);
    EXPECT_EQ(check(), "unknown: its check gives no answer");
}

struct SizeWord {
    const char* text;
    std::optional<unsigned long long> bytes;
};

TEST(Size, IsANumberWithAUnit) {
    constexpr unsigned long long kMost = (1ULL << 63) - 1;
    const SizeWord words[] = {{"0", 0},
                              {"4096", 4096},
                              {"12b", 12},
                              {"3k", 3072},
                              {"500M", 500ULL << 20},
                              {"10G", 10ULL << 30},
                              {"10GiB", 10ULL << 30},
                              {"2tIB", 2ULL << 40},
                              {"9223372036854775807", kMost},
                              {"8388607T", 8388607ULL << 40},
                              {"8388608T", std::nullopt},
                              {"9223372036854775808", std::nullopt},
                              {"", std::nullopt},
                              {"G", std::nullopt},
                              {"-1", std::nullopt},
                              {"+1", std::nullopt},
                              {"1.5G", std::nullopt},
                              {"1 G", std::nullopt},
                              {"1GB", std::nullopt},
                              {"1P", std::nullopt},
                              {"1GiBx", std::nullopt}};
    for (const SizeWord& word : words)
        EXPECT_EQ(parseSize(word.text), word.bytes) << word.text;
}

}  // namespace

}  // namespace ombrel::test::database_check
