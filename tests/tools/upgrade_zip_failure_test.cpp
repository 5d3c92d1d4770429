// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// ZIP files that cannot be upgraded stay as they are, and the error says what to do.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "linux/common/fd.h"
#include "tests/tools/zipped_databases.h"

namespace fs = std::filesystem;

namespace ombrel::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class RefusedZip : public ZippedDatabases {
protected:
    [[nodiscard]] std::string packedBytes(const std::string& name, const std::vector<std::string>& options) const {
        makeOld(name, 100);
        pack({name}, options);
        return readBytes(zip);
    }
    static std::string littleEndian(std::uint32_t value) {
        std::string bytes;
        for (int i = 0; i < 4; ++i, value >>= 8U)
            bytes += static_cast<char>(value & 0xFFU);
        return bytes;
    }
    static std::size_t centralHead(const std::string& bytes) { return bytes.rfind("PK\1\2"); }

    /// Runs the upgrade in a child with other means than this process has. Its error; "done" without one.
    std::string errorOf(const std::function<bool()>& prepare) {
        const std::string file = folder.at("error");
        writeBytes(file, "");
        ::chmod(file.c_str(), 0666);
        EXPECT_EQ(runInChild([&] {
                      const Fd out(::open(file.c_str(), O_WRONLY | O_CLOEXEC));
                      if (!prepare()) return 77;
                      const UpgradeOutcome outcome = upgradeZip(zip, work, false, watch, kZipOptions);
                      const std::string text = outcome.end == UpgradeEnd::kDone ? "done" : outcome.error;
                      return ::write(out.get(), text.data(), text.size()) >= 0 ? 0 : 1;
                  }),
                  0);
        return readBytes(file);
    }
};

TEST_F(RefusedZip, IsOneThatIsNone) {
    writeBytes(zip, "no ZIP file at all");
    expectRefused("Not a zip archive; the ZIP file is damaged");
    EXPECT_THAT(oldDatabasesInZip(zip).error, HasSubstr("Not a zip archive"));
    writeBytes(zip, "");  // as a ZIP file without entries
    EXPECT_EQ(oldDatabasesInZip(zip).error, "");
    EXPECT_EQ(upgrade().end, UpgradeEnd::kDone);
}

TEST_F(RefusedZip, IsNoRegularFile) {
    packArchive();
    fs::create_symlink(zip, folder.at("link"));
    EXPECT_THAT(oldDatabasesInZip(folder.at("link")).error, HasSubstr("link: it is no regular file"));
    EXPECT_THAT(oldDatabasesInZip(folder.path()).error, HasSubstr("it is no regular file"));
    ASSERT_EQ(::mkfifo(folder.at("pipe").c_str(), 0600), 0);
    EXPECT_THAT(oldDatabasesInZip(folder.at("pipe")).error, HasSubstr("it is no regular file"));
    EXPECT_THAT(oldDatabasesInZip(folder.at("none")).error, HasSubstr("none: No such file"));
}

TEST_F(RefusedZip, IsCutOff) {
    packArchive();
    const std::string bytes = readBytes(zip);
    writeBytes(zip, bytes.substr(0, bytes.size() / 2));
    expectRefused("Not a zip archive");
}

TEST_F(RefusedZip, HasADatabaseWithAWrongChecksum) {
    packArchive(5000);
    const ZipEntry entry = entriesOf(zip)[0];
    patch(littleEndian(entry.crc), littleEndian(entry.crc ^ 1U));
    expectRefused(std::string("cannot unpack the entry ") + kArchive + ": CRC error; the ZIP file is damaged");
    EXPECT_THAT(workFiles(), IsEmpty());
}

TEST_F(RefusedZip, HasADatabaseWithDamagedBytes) {
    std::string bytes = packedBytes("srv/logs/a.DB", {});
    bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 0x55);
    writeBytes(zip, bytes);
    expectRefused("the entry srv/logs/a.DB: ");
    EXPECT_THAT(workFiles(), IsEmpty());
}

TEST_F(RefusedZip, HasADatabaseThatIsLongerOrShorterThanItSays) {
    const std::string bytes = packedBytes("srv/logs/a.DB", {});
    const auto size = static_cast<std::uint32_t>(entriesOf(zip)[0].size);
    for (const std::uint32_t stated : {size + 100, size + 10'000'000, size - 100}) {
        std::string changed = bytes;
        changed.replace(centralHead(bytes) + 24, 4, littleEndian(stated));
        writeBytes(zip, changed);
        const UpgradeOutcome outcome = upgrade();
        // Cut off it is no database: it is not touched.
        EXPECT_EQ(outcome.end, stated < size ? UpgradeEnd::kDone : UpgradeEnd::kFailed);
        if (stated > size) {
            EXPECT_THAT(outcome.error, HasSubstr("the ZIP file is damaged"));
        }
        EXPECT_TRUE(readBytes(zip) == changed);
        EXPECT_THAT(workFiles(), IsEmpty());
    }
}

TEST_F(RefusedZip, IsNoneWhoseOtherEntriesAreDamaged) {
    for (const char* way : {"-0", "-9"}) {
        makeOld("srv/logs/a.DB");
        writeBytes(root + "/other", "0123456789 and on, and on, and on, and on, and on, and on, and on");
        pack({"srv/logs/a.DB", "other"}, {way});
        const ZipEntry other = entriesOf(zip)[1];
        patch(littleEndian(other.crc), littleEndian(other.crc ^ 1U));
        const UpgradeOutcome outcome = upgrade();
        EXPECT_EQ(outcome.end, UpgradeEnd::kDone) << outcome.error;
        EXPECT_TRUE(entriesOf(zip)[1] == entriesOf(zip + ".v1")[1]);
        EXPECT_EQ(oldDatabasesInZip(zip).oldDatabases, 0);
        EXPECT_EQ(runIn(root, {"/usr/bin/unzip", "-tq", zip, "srv/logs/a.DB"}), 0);
        fs::remove(zip);
        fs::remove(zip + ".v1");
    }
}

TEST_F(RefusedZip, HasEntriesThatShareTheirBytes) {
    const std::string bytes = packedBytes("srv/logs/a.DB", {"-X"});
    const std::size_t head = centralHead(bytes);
    const std::size_t end = bytes.rfind("PK\5\6");
    const std::string one = bytes.substr(head, end - head);
    std::string changed = bytes.substr(0, end) + one + bytes.substr(end);
    const std::size_t newEnd = end + one.size();
    changed.replace(newEnd + 8, 4, std::string("\2\0\2\0", 4));
    changed.replace(newEnd + 12, 4, littleEndian(static_cast<std::uint32_t>(2 * one.size())));
    writeBytes(zip, changed);
    expectRefused("its entries overlap");
}

TEST_F(RefusedZip, WouldReplaceAnotherFileThatWasKept) {
    packArchive();
    writeBytes(zip + ".v1", "another");
    const UpgradeOutcome outcome = upgrade();
    EXPECT_EQ(outcome.end, UpgradeEnd::kFailed);
    EXPECT_THAT(outcome.error, HasSubstr(zip + ".v1 is there already"));
    EXPECT_EQ(readBytes(zip + ".v1"), "another");
    EXPECT_EQ(watch.calls, 0);
}

TEST_F(RefusedZip, HasADatabaseThatCannotBeConverted) {
    packArchive();
    const std::string before = readBytes(zip);
    const UpgradeOutcome outcome = upgradeZip(zip, work, false, watch, {.schemaFile = folder.at("none")});
    EXPECT_EQ(outcome.end, UpgradeEnd::kFailed);
    EXPECT_THAT(outcome.error, AllOf(HasSubstr(zip), HasSubstr(kArchive), HasSubstr("No such file or directory")));
    EXPECT_TRUE(readBytes(zip) == before);
    EXPECT_THAT(workFiles(), IsEmpty());
}

TEST_F(RefusedZip, HasASuccessorThatDoesNotReadBack) {
    packArchive(5000);
    watch.onCall = [&](UpgradeStage stage) {
        if (stage != UpgradeStage::kPacking) return;
        for (const std::string& name : workFiles()) {
            if (!name.ends_with("packing") || fs::file_size(workPath + "/" + name) < 10'000) continue;
            const Fd file(::open((workPath + "/" + name).c_str(), O_WRONLY | O_CLOEXEC));
            EXPECT_EQ(::pwrite(file.get(), "damage", 6, 5000), 6);
        }
    };
    expectRefused(std::string("does not read back as it should, at the entry ") + kArchive);
    EXPECT_EQ(workFiles().size(), 2U);  // the database is not converted again
    watch.reset();
    upgradeWell(5000);
}

TEST_F(RefusedZip, IsInAFolderThatCannotBeWritten) {
    packArchive();
    const std::string before = readBytes(zip);
    fs::create_directory(folder.at("locked"));
    fs::rename(zip, folder.at("locked/a.ZIP"));
    zip = folder.at("locked/a.ZIP");
    ::chmod(folder.path().c_str(), 0755);
    ::chmod(folder.at("locked").c_str(), 0555);
    const bool isRoot = ::geteuid() == 0;
    constexpr uid_t kNobody = 65534;
    ASSERT_TRUE(!isRoot || ::chown(workPath.c_str(), kNobody, kNobody) == 0);
    EXPECT_THAT(errorOf([=] { return !isRoot || ::setresuid(kNobody, kNobody, kNobody) == 0; }),
                AllOf(HasSubstr(zip), HasSubstr("Permission denied")));
    EXPECT_TRUE(readBytes(zip) == before);
    EXPECT_FALSE(fs::exists(zip + ".v1"));
    EXPECT_THAT(workFiles(), IsEmpty());  // found out before anything was unpacked
}

TEST_F(RefusedZip, HasNoRoomToBeUnpacked) {
    makeOld("srv/logs/a.DB", 5000);
    pack({"srv/logs/a.DB"});
    const std::string before = readBytes(zip);
    const std::string error = errorOf(
        [&] { return enterPrivateMounts() && ::mount("tmpfs", workPath.c_str(), "tmpfs", 0, "size=256k") == 0; });
    EXPECT_THAT(error, AllOf(HasSubstr("No space left on device"), HasSubstr("make room")));
    EXPECT_TRUE(readBytes(zip) == before);
}

TEST_F(RefusedZip, HasNoRoomToBePacked) {
    packArchive(2000);
    const std::string before = readBytes(zip);
    bool isFull = false;
    watch.onCall = [&](UpgradeStage stage) {
        if (stage != UpgradeStage::kPacking || isFull) return;
        const Fd filler(::open((workPath + "/filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        isFull = true;
        off_t size = 0;
        for (const off_t step : {off_t{1} << 20, off_t{4096}})
            for (; ::fallocate(filler.get(), 0, size, step) == 0; size += step) {
            }
    };
    const std::string error = errorOf(
        [&] { return enterPrivateMounts() && ::mount("tmpfs", workPath.c_str(), "tmpfs", 0, "size=90m") == 0; });
    EXPECT_THAT(error, AllOf(HasSubstr(zip + ": cannot pack it anew: "), HasSubstr("No space left on device"),
                             HasSubstr("make room")));
    EXPECT_TRUE(readBytes(zip) == before);
}

TEST_F(RefusedZip, MustNotBecomeTooLarge) {
    packArchive(2000);
    const std::string before = readBytes(zip);
    watch.onCall = [&](UpgradeStage stage) {
        const rlimit limit{1000, 1000};
        if (stage == UpgradeStage::kPacking) (void)::setrlimit(RLIMIT_FSIZE, &limit);
    };
    const std::string error = errorOf([&] { return ::signal(SIGXFSZ, SIG_IGN) != SIG_ERR; });
    EXPECT_THAT(error, HasSubstr("cannot pack it anew"));
    EXPECT_TRUE(readBytes(zip) == before);
    watch.reset();
    upgradeWell(2000);  // with the database that was made before
}

}  // namespace
}  // namespace ombrel::test
