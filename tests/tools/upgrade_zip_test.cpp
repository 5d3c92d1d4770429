// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// ZIP files with databases of the old layout, as the archiver and as people have packed them.
#include "tools/ombrel-upgrade/upgrade_zip.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <map>
#include <vector>

#include "linux/common/sqlite_db.h"
#include "tests/linux/child_process.h"
#include "tests/support/old_database.h"
#include "tools/ombrel-upgrade/upgrade_database.h"
#include "tools/ombrel-upgrade/zip_file.h"

namespace fs = std::filesystem;

namespace ombrel {
namespace {

using test::readBytes;
using test::writeBytes;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

const ConversionOptions kOptions{.schemaFile = OMBREL_SCHEMA_FILE, .pageRows = 40};

/// Runs a program in a folder; its exit code.
int run(const std::string& folder, const std::vector<std::string>& words) {
    return test::runInChild([&] {
        std::vector<char*> arguments;
        for (const std::string& word : words)
            arguments.push_back(const_cast<char*>(word.c_str()));
        arguments.push_back(nullptr);
        const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
        for (const int fd : {0, 1, 2})
            (void)::dup2(nowhere, fd);
        if (::chdir(folder.c_str()) == 0) (void)::execv(arguments[0], arguments.data());
        return 127;
    });
}

class Watch : public UpgradeWatch {
public:
    void progress(UpgradeStage stage, long long done, long long total) override {
        EXPECT_LE(done, total);
        EXPECT_GE(done, stages.empty() || stages.back() != stage ? 0 : last);
        if (stages.empty() || stages.back() != stage) stages.push_back(stage);
        last = done;
        ++calls;
        if (onCall) onCall(calls);
    }
    [[nodiscard]] bool stopWanted() const override { return ++asked == stopAt; }

    std::vector<UpgradeStage> stages;
    std::function<void(int)> onCall;
    long long last = 0;
    int calls = 0;
    mutable int asked = 0;
    int stopAt = 0;
};

class ZippedDatabases : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(root + "/srv/logs");
        ASSERT_EQ(work.open(workPath), "");
    }

    void makeOld(const std::string& name, long long rows = 100, std::uint64_t seed = 1) const {
        test::makeOldDatabase(root + "/" + name, {.rows = rows, .seed = seed, .plain = true, .longMessageEvery = 0});
    }
    /// Packs as the archiver does, with `options` of zip; the files are gone then.
    void pack(const std::vector<std::string>& names, const std::vector<std::string>& options = {}) const {
        std::vector<std::string> words{"/usr/bin/zip", "-q", "-m"};
        words.insert(words.end(), options.begin(), options.end());
        words.push_back(zip);
        words.insert(words.end(), names.begin(), names.end());
        ASSERT_EQ(run(root, words), 0);
    }
    /// One archive and its text, and a copy of the database to compare with.
    void packArchive(long long rows = 100) const {
        makeOld(kArchive, rows);
        fs::copy_file(root + "/" + kArchive, plain, fs::copy_options::overwrite_existing);
        writeBytes(root + "/" + kText, std::string(3000, 't'));
        pack({kArchive, kText});
    }
    UpgradeOutcome upgrade(bool removeOld = false) { return upgradeZip(zip, work, removeOld, watch, kOptions); }
    void upgradeWell(long long rows) {
        const UpgradeOutcome outcome = upgrade();
        ASSERT_EQ(outcome.end, UpgradeEnd::kDone) << outcome.error;
        EXPECT_EQ(outcome.rows, rows);
        EXPECT_THAT(workFiles(), IsEmpty());
        EXPECT_EQ(run(root, {"/usr/bin/unzip", "-tq", zip}), 0);
        EXPECT_EQ(oldDatabasesInZip(zip).oldDatabases, 0);
    }
    void expectRefused(const std::string& why) {
        const std::string before = readBytes(zip);
        const UpgradeOutcome outcome = upgrade();
        EXPECT_EQ(outcome.end, UpgradeEnd::kFailed);
        EXPECT_THAT(outcome.error, AllOf(HasSubstr(why), HasSubstr(zip)));
        EXPECT_TRUE(readBytes(zip) == before);
        EXPECT_FALSE(fs::exists(zip + ".v1"));
    }

    [[nodiscard]] std::vector<std::string> workFiles() const {
        std::vector<std::string> names;
        for (const auto& one : fs::directory_iterator(workPath))
            names.push_back(one.path().filename());
        return names;
    }
    [[nodiscard]] static std::vector<ZipEntry> entriesOf(const std::string& path) {
        ZipFile file;
        EXPECT_EQ(file.open(path), "");
        return file.entries();
    }
    [[nodiscard]] static std::string contentsOf(const std::string& path, const ZipEntry& entry,
                                                zip_flags_t flags = 0) {
        ZipFile file;
        std::string error = file.open(path);
        const ZipStream stream = file.read(entry, flags, error);
        std::string bytes(flags == 0 ? entry.size : entry.packedSize, '\0');
        EXPECT_EQ(zip_fread(stream.get(), bytes.data(), bytes.size()), static_cast<zip_int64_t>(bytes.size()));
        return bytes;
    }
    /// The new database as upgradeDatabase makes it of a file.
    [[nodiscard]] std::string convertedBytes(const std::string& path) {
        EXPECT_EQ(upgradeDatabase(path, work, true, watch, kOptions).error, "");
        return readBytes(path);
    }
    /// Sets bytes of the ZIP file wherever `from` stands in it.
    void patch(const std::string& from, const std::string& to) const {
        std::string bytes = readBytes(zip);
        ASSERT_NE(bytes.find(from), std::string::npos);
        for (std::size_t at = 0; (at = bytes.find(from, at)) != std::string::npos; at += to.size())
            bytes.replace(at, to.size(), to);
        writeBytes(zip, bytes);
    }

    static constexpr const char* kArchive = "srv/logs/2024-03-03_2024-03-09.DB";
    static constexpr const char* kText = "srv/logs/2024-03-03_2024-03-09.TXT";

    test::TemporaryFolder folder;
    std::string root = folder.at("root");
    std::string workPath = folder.at("work");
    std::string zip = folder.at("2024-03-03_2024-03-09.ZIP");
    std::string plain = folder.at("plain.DB");
    WorkFolder work;
    Watch watch;
};

TEST_F(ZippedDatabases, AreFoundAmongOtherFiles) {
    makeOld("srv/logs/a.DB", 100, 1);
    makeOld("srv/logs/b.db", 3000, 2);
    makeOld("srv/logs/c.DB", 10, 3);
    const auto bytes = fs::file_size(root + "/srv/logs/a.DB") + fs::file_size(root + "/srv/logs/b.db");
    (void)convertedBytes(root + "/srv/logs/c.DB");
    makeOld("srv/logs/other.dat");
    writeBytes(root + "/srv/logs/empty.DB", "");
    writeBytes(root + "/srv/logs/text.DB", std::string(3'000'000, 'x'));
    writeBytes(root + "/srv/logs/head.DB", std::string("SQLite format 3\0", 16) + std::string(5000, '\0'));
    writeBytes(root + "/srv/logs/half.DB", readBytes(root + "/srv/logs/b.db").substr(0, 8192));
    writeBytes(root + "/DB", "x");
    fs::create_directory(root + "/srv/logs/folder.DB");
    pack({"srv", "DB"}, {"-r"});
    const ZipContents contents = oldDatabasesInZip(zip);
    EXPECT_EQ(contents.error, "");
    EXPECT_EQ(contents.notice, "");
    EXPECT_EQ(contents.oldDatabases, 2);
    EXPECT_EQ(contents.bytes, bytes);
}

TEST_F(ZippedDatabases, AreFoundWhateverTheirJournalModeAndPageSize) {
    int count = 0;
    for (const char* settings : {"PRAGMA journal_mode=WAL", "PRAGMA page_size=512; VACUUM",
                                 "PRAGMA page_size=65536; VACUUM", "PRAGMA auto_vacuum=FULL; VACUUM"}) {
        const std::string name = "srv/logs/" + std::to_string(++count) + ".DB";
        makeOld(name, 200);
        Connection connection;
        ASSERT_EQ(connection.open(root + "/" + name, OpenMode::kReadWrite), 0);
        ASSERT_EQ(connection.execute(settings), 0);
    }
    pack({"srv"}, {"-r"});
    EXPECT_EQ(oldDatabasesInZip(zip).oldDatabases, count);
    upgradeWell(200 * count);
}

TEST_F(ZippedDatabases, AreConvertedAndTheRestStaysAsItWas) {
    packArchive();
    const std::vector<ZipEntry> before = entriesOf(zip);
    const std::string old = readBytes(zip);
    upgradeWell(100);
    EXPECT_TRUE(readBytes(zip + ".v1") == old);
    const std::vector<ZipEntry> after = entriesOf(zip);
    ASSERT_EQ(after.size(), 2U);
    EXPECT_TRUE(contentsOf(zip, after[0]) == convertedBytes(plain));
    EXPECT_EQ(after[0].name, before[0].name);
    EXPECT_EQ(after[0].changed, before[0].changed);
    EXPECT_EQ(after[0].attributes, before[0].attributes);
    EXPECT_EQ(after[1], before[1]);
    EXPECT_EQ(contentsOf(zip, after[1], ZIP_FL_COMPRESSED), contentsOf(zip + ".v1", before[1], ZIP_FL_COMPRESSED));
    EXPECT_THAT(watch.stages, Contains(UpgradeStage::kUnpacking));
    EXPECT_THAT(watch.stages, Contains(UpgradeStage::kConverting));
    EXPECT_THAT(watch.stages, Contains(UpgradeStage::kPacking));
}

TEST_F(ZippedDatabases, AreConvertedOnce) {
    packArchive();
    upgradeWell(100);
    const std::string once = readBytes(zip);
    upgradeWell(0);
    EXPECT_TRUE(readBytes(zip) == once);
}

}  // namespace
}  // namespace ombrel
