// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tests/unit/fake_machine.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "tests/fake/fake_platform.h"
#include "tools/ombrel/answer.h"
#include "tools/ombrel/exec_program.h"
#include "tools/ombrel/folder_listing.h"
#include "tools/ombrel/search_zip.h"
#include "tools/ombrel/turn.h"
#include "tools/ombrel/worker_count.h"

namespace ombrel {

namespace {

std::optional<FolderEntry> entryOf(const std::filesystem::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return std::nullopt;
    FolderEntry entry;
    entry.name = path.filename();
    entry.isFolder = S_ISDIR(status.st_mode);
    entry.bytes = static_cast<unsigned long long>(status.st_size);
    entry.changed = status.st_mtim.tv_sec;
    return entry;
}

}  // namespace

std::optional<std::vector<FolderEntry>> listFolder(const std::string& path) {
    std::error_code code;
    std::vector<FolderEntry> entries;
    for (const auto& found : std::filesystem::directory_iterator(test::FakePlatform::current().real(path), code)) {
        if (const auto entry = entryOf(found.path()); entry && entry->name[0] != '.') entries.push_back(*entry);
    }
    errno = code.value();
    if (code) return std::nullopt;
    return entries;
}

std::optional<FolderEntry> fileEntry(const std::string& path) {
    auto entry = entryOf(test::FakePlatform::current().real(path));
    if (!entry || !entry->isFolder) return entry;
    errno = EISDIR;
    return std::nullopt;
}

namespace {

class ToldWatch : public FollowWatch {
public:
    bool watch(const std::string& folder) override {
        test::fakeMachine().watchedFolders.insert(folder);
        return true;
    }
    FollowWake wait() override {
        FollowWake wake;
        wake.stop = true;
        const auto& told = test::fakeMachine().whileWaiting;
        if (told) wake = told();
        isStopped_ = wake.stop;
        return wake;
    }
    [[nodiscard]] bool stopAsked() const override { return isStopped_; }

private:
    bool isStopped_ = false;
};

}  // namespace

std::unique_ptr<FollowWatch> openFollowWatch(const std::string& /*settingsFile*/) {
    errno = EMFILE;
    return test::fakeMachine().canWatch ? std::make_unique<ToldWatch>() : nullptr;
}

int execProgram(const std::string& path, const std::vector<std::string>& words) {
    test::fakeMachine().executed.push_back({path});
    auto& program = test::fakeMachine().executed.back();
    program.insert(program.end(), words.begin(), words.end());
    return test::fakeMachine().execResult;
}

struct ZipScratch::Folders {};

ZipScratch::ZipScratch() = default;
ZipScratch::ZipScratch(FolderOf /*volumeScratch*/) {
}
ZipScratch::~ZipScratch() = default;

Unpacked ZipScratch::unpack(const std::string& zip, std::size_t number, const std::function<bool()>& /*goesOn*/) {
    const auto& databases = test::fakeMachine().zipped[zip];
    test::fakeMachine().unpacked.push_back(zip);
    Unpacked unpacked;
    unpacked.isLast = number + 1 >= databases.size();
    if (number < databases.size()) {
        unpacked.path = std::make_shared<std::string>(databases[number]);
        unpacked.bytes = 1;
    } else {
        unpacked.error = zip + ": damaged";
    }
    return unpacked;
}

// The recording platform is for one thread.
unsigned workerCount() {
    return 1;
}

int Turn::take(For /*what*/) {
    ++test::fakeMachine().turnsTaken;
    const int result = test::fakeMachine().turnResult;
    return result == 0 ? 0 : complain(result, "no turn");
}

namespace test {

FakeMachine& fakeMachine() {
    static FakeMachine machine;
    return machine;
}

}  // namespace test

}  // namespace ombrel
