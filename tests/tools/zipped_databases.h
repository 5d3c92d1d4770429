// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// ZIP files with databases of the old layout, as the archiver and as people have packed them.
#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/linux/child_process.h"
#include "tools/ombrel-upgrade/upgrade_zip.h"
#include "tools/ombrel-upgrade/zip_file.h"

namespace ombrel::test {

/// Pages of a few rows, so that a small database is converted in many steps.
extern const ConversionOptions kZipOptions;

/// Runs a program in a folder, without its words; its exit code.
int runIn(const std::string& folder, const std::vector<std::string>& words);

class StageWatch : public UpgradeWatch {
public:
    void progress(UpgradeStage stage, long long done, long long total) override;
    [[nodiscard]] bool stopWanted() const override { return ++asked == stopAt; }
    void reset();

    std::vector<UpgradeStage> stages;
    std::function<void(UpgradeStage)> onCall;
    long long last = 0;
    int calls = 0;
    mutable int asked = 0;
    int stopAt = 0;
};

class ZippedDatabases : public ::testing::Test {
protected:
    void SetUp() override;

    void makeOld(const std::string& name, long long rows = 100, std::uint64_t seed = 1) const;
    void changeDatabase(const std::string& name, const char* sql) const;
    /// Packs as the archiver does, with `options` of zip; the files are gone then.
    void pack(const std::vector<std::string>& names, const std::vector<std::string>& options = {}) const;
    /// One archive and its text, and a copy of the database to compare with.
    void packArchive(long long rows = 100, const char* sql = "") const;
    /// Sets bytes of the ZIP file wherever `from` stands in it.
    void patch(const std::string& from, const std::string& to) const;

    UpgradeOutcome upgrade(bool removeOld = false) { return upgradeZip(zip, work, removeOld, watch, kZipOptions); }
    /// Upgrades, and expects all to be well afterwards.
    void upgradeWell(long long rows);
    /// Upgrades, and expects the reason in the error and the ZIP file as it was.
    void expectRefused(const std::string& why);
    /// All but the contents of the databases of the old layout is as in NAME.v1.
    void expectTheRestAsBefore() const;

    [[nodiscard]] std::vector<std::string> workFiles() const;
    [[nodiscard]] static std::vector<ZipEntry> entriesOf(const std::string& path);
    [[nodiscard]] static std::string contentsOf(const std::string& path, const ZipEntry& entry,
                                                zip_flags_t flags = 0);
    /// The new database as upgradeDatabase makes it of a file.
    [[nodiscard]] std::string convertedBytes(const std::string& path);

    static constexpr const char* kArchive = "srv/logs/2024-03-03_2024-03-09.DB";
    static constexpr const char* kText = "srv/logs/2024-03-03_2024-03-09.TXT";

    TemporaryFolder folder{"/dev/shm"};  // hundreds of runs, and each syncs all that it writes
    std::string root = folder.at("root");
    std::string workPath = folder.at("work");
    std::string zip = folder.at("2024-03-03_2024-03-09.ZIP");
    std::string plain = folder.at("plain.DB");
    WorkFolder work;
    StageWatch watch;
};

}  // namespace ombrel::test
