// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tests/tools/zipped_databases.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>

#include "linux/common/sqlite_db.h"
#include "tests/support/old_database.h"
#include "tools/ombrel-upgrade/upgrade_database.h"
#include "tools/ombrel-upgrade/zip_databases.h"

namespace fs = std::filesystem;

namespace ombrel::test {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const ConversionOptions kZipOptions{.schemaFile = OMBREL_SCHEMA_FILE, .pageRows = 40};

int runIn(const std::string& folder, const std::vector<std::string>& words) {
    return runInChild([&] {
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

void StageWatch::progress(UpgradeStage stage, long long done, long long total) {
    const bool isNew = stages.empty() || stages.back() != stage;
    EXPECT_LE(done, total);
    EXPECT_GE(done, isNew ? 0 : last);
    if (isNew) stages.push_back(stage);
    last = done;
    ++calls;
    if (onCall) onCall(stage);
}

void StageWatch::reset() {
    stages.clear();
    onCall = {};
    last = 0;
    calls = asked = stopAt = 0;
}

void ZippedDatabases::SetUp() {
    fs::create_directories(root + "/srv/logs");
    ASSERT_EQ(work.open(workPath), "");
}

void ZippedDatabases::makeOld(const std::string& name, long long rows, std::uint64_t seed) const {
    makeOldDatabase(root + "/" + name, {.rows = rows, .seed = seed, .plain = true, .longMessageEvery = 0});
}

void ZippedDatabases::changeDatabase(const std::string& name, const char* sql) const {
    Connection connection;
    ASSERT_EQ(connection.open(root + "/" + name, OpenMode::kReadWrite), 0);
    ASSERT_EQ(connection.execute(sql), 0);
}

void ZippedDatabases::pack(const std::vector<std::string>& names, const std::vector<std::string>& options) const {
    std::vector<std::string> words{"/usr/bin/zip", "-q", "-m"};
    words.insert(words.end(), options.begin(), options.end());
    words.push_back(zip);
    words.insert(words.end(), names.begin(), names.end());
    ASSERT_EQ(runIn(root, words), 0);
}

void ZippedDatabases::packArchive(long long rows, const char* sql) const {
    makeOld(kArchive, rows);
    changeDatabase(kArchive, sql);
    fs::copy_file(root + "/" + kArchive, plain, fs::copy_options::overwrite_existing);
    writeBytes(root + "/" + kText, std::string(3000, 't'));
    pack({kArchive, kText});
}

void ZippedDatabases::patch(const std::string& from, const std::string& to) const {
    std::string bytes = readBytes(zip);
    ASSERT_NE(bytes.find(from), std::string::npos);
    for (std::size_t at = 0; (at = bytes.find(from, at)) != std::string::npos; at += to.size())
        bytes.replace(at, from.size(), to);
    writeBytes(zip, bytes);
}

void ZippedDatabases::upgradeWell(long long rows) {
    const UpgradeOutcome outcome = upgrade();
    ASSERT_EQ(outcome.end, UpgradeEnd::kDone) << outcome.error;
    EXPECT_EQ(outcome.rows, rows);
    EXPECT_THAT(workFiles(), IsEmpty());
    EXPECT_EQ(runIn(root, {"/usr/bin/unzip", "-tq", zip}), 0);
    EXPECT_EQ(oldDatabasesInZip(zip).oldDatabases, 0);
}

void ZippedDatabases::expectRefused(const std::string& why) {
    const std::string before = readBytes(zip);
    const UpgradeOutcome outcome = upgrade();
    EXPECT_EQ(outcome.end, UpgradeEnd::kFailed);
    EXPECT_THAT(outcome.error, AllOf(HasSubstr(why), HasSubstr(zip)));
    EXPECT_TRUE(readBytes(zip) == before);
    EXPECT_FALSE(fs::exists(zip + ".v1"));
}

void ZippedDatabases::expectTheRestAsBefore() const {
    ZipFile before;
    ZipFile after;
    ASSERT_EQ(before.open(zip + ".v1"), "");
    ASSERT_EQ(after.open(zip), "");
    EXPECT_EQ(before.comment(), after.comment());
    ASSERT_EQ(before.entries().size(), after.entries().size());
    const std::vector<ZipEntry> old = findOldDatabases(before).old;
    for (ZipEntry entry : before.entries()) {
        const ZipEntry& other = after.entries()[entry.index];
        if (std::find(old.begin(), old.end(), entry) != old.end()) {
            EXPECT_EQ(other.method, ZIP_CM_DEFLATE);
            entry.method = ZIP_CM_DEFLATE;
            entry.size = other.size;
            entry.packedSize = other.packedSize;
            entry.crc = other.crc;
        } else {
            EXPECT_TRUE(contentsOf(zip + ".v1", entry, ZIP_FL_COMPRESSED) ==
                        contentsOf(zip, other, ZIP_FL_COMPRESSED));
        }
        EXPECT_TRUE(entry == other) << entry.name;
    }
}

std::vector<std::string> ZippedDatabases::workFiles() const {
    std::vector<std::string> names;
    for (const auto& one : fs::directory_iterator(workPath))
        names.push_back(one.path().filename());
    return names;
}

std::vector<ZipEntry> ZippedDatabases::entriesOf(const std::string& path) {
    ZipFile file;
    EXPECT_EQ(file.open(path), "");
    return file.entries();
}

std::string ZippedDatabases::contentsOf(const std::string& path, const ZipEntry& entry, zip_flags_t flags) {
    ZipFile file;
    std::string error = file.open(path);
    const ZipStream stream = file.read(entry, entry.encryption != 0 ? ZIP_FL_ENCRYPTED : flags, error);
    std::string bytes(flags == 0 ? entry.size : entry.packedSize, '\0');
    if (!stream || zip_fread(stream.get(), bytes.data(), bytes.size()) != static_cast<zip_int64_t>(bytes.size())) {
        ADD_FAILURE() << "cannot read " << entry.name << " of " << path << ": " << error;
    }
    return bytes;
}

std::string ZippedDatabases::convertedBytes(const std::string& path) {
    EXPECT_EQ(upgradeDatabase(path, work, true, watch, kZipOptions).error, "");
    return readBytes(path);
}

}  // namespace ombrel::test
