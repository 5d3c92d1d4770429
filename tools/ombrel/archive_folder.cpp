// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/archive_folder.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <set>

#include "linux/common/folder_stream.h"
#include "linux/common/sync_folder.h"
#include "tools/ombrel/archive_name.h"
#include "tools/ombrel/conversions_now.h"

namespace ombrel {

namespace {

constexpr long long kSettledSeconds = 600;
constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

using Folder = std::shared_ptr<const Fd>;

bool hasSettled(const struct stat& status, long long now) {
    const long long distance = now - status.st_mtim.tv_sec;
    return distance >= kSettledSeconds || distance <= -kSettledSeconds;
}

/// What it is removed after: a database last, since it is the archive where there is one; 0 of what goes with it.
int rankOf(const std::string& name) {
    return name.ends_with(".DB") ? 3 : name.ends_with(".ZIP") ? 2 : name.ends_with(".TXT") ? 1 : 0;
}

class Scanner {
public:
    Scanner(ArchiveScan& scan, long long now) : scan_(scan), now_(now), converted_(conversionsNow()) {}

    void scanTop(const std::string& path) {
        const auto top = std::make_shared<const Fd>(::open(path.c_str(), kOpenFolder));
        if (!*top) {
            const bool isLink = errno == ELOOP || errno == ENOTDIR;
            scan_.notes.push_back(path + ": " + std::strerror(errno) +
                                  (isLink ? "; archives are not removed through a symbolic link" : ""));
            return;
        }
        scan(top, path, true);
    }

private:
    void scan(const Folder& folder, const std::string& path, bool isTop) {
        // The stream has an open folder of its own, which goes with it.
        Fd reading(::openat(folder->get(), ".", kOpenFolder));
        const FolderStream stream(reading ? ::fdopendir(reading.get()) : nullptr);
        if (!stream) {
            scan_.notes.push_back(path + ": " + std::strerror(errno));
            return;
        }
        (void)reading.release();
        std::map<std::string, ArchiveFiles> found;
        errno = 0;
        while (const dirent* entry = ::readdir(stream.get())) {
            look(folder, path, entry->d_name, isTop, found);
            errno = 0;
        }
        if (errno != 0) scan_.notes.push_back(path + ": " + std::strerror(errno));
        for (auto& [stem, archive] : found)
            keep(std::move(archive));
    }

    void look(const Folder& folder, const std::string& path, const std::string& name, bool isTop,
              std::map<std::string, ArchiveFiles>& found) {
        struct stat status {};
        if (name[0] == '.' || ::fstatat(folder->get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return;
        if (S_ISDIR(status.st_mode)) {
            if (isTop && name != "@tmp") scanSubFolder(folder, path, name);
            return;
        }
        const auto parsed = readArchiveName(name);
        if (!S_ISREG(status.st_mode) || !parsed) return;
        ArchiveFiles& archive = found[parsed->stem];
        archive.folder = folder;
        archive.folderPath = path;
        archive.files.push_back({name, status});
    }

    void scanSubFolder(const Folder& folder, const std::string& path, const std::string& name) {
        const auto sub = std::make_shared<const Fd>(::openat(folder->get(), name.c_str(), kOpenFolder));
        const std::string subPath = path + "/" + name;
        if (*sub) {
            scan(sub, subPath, false);
        } else if (errno != ENOENT) {
            scan_.notes.push_back(subPath + ": " + std::strerror(errno));
        }
    }

    /// What has lost its archive is none, and stays.
    void keep(ArchiveFiles archive) {
        std::sort(archive.files.begin(), archive.files.end(),
                  [](const auto& a, const auto& b) { return rankOf(a.name) < rankOf(b.name); });
        if (rankOf(archive.files.back().name) == 0) return;
        const auto name = readArchiveName(archive.files.back().name);
        RetainedArchive& facts = archive.facts;
        facts.path = archive.folderPath + "/" + archive.files.back().name;
        facts.firstDay = name->firstDay;
        facts.lastDay = name->lastDay;
        facts.number = name->number;
        facts.isBusy = converted_.contains(archive.folderPath + "/" + name->stem + ".DB");
        for (const ArchiveFiles::File& file : archive.files) {
            facts.bytes += static_cast<unsigned long long>(file.status.st_size);
            facts.isBusy = facts.isBusy || !hasSettled(file.status, now_);
        }
        scan_.archives.push_back(std::move(archive));
    }

    ArchiveScan& scan_;
    long long now_;
    std::set<std::string> converted_;
};

bool isSame(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

}  // namespace

ArchiveScan scanArchives(const std::string& folder, long long now) {
    ArchiveScan scan;
    Scanner(scan, now).scanTop(folder);
    return scan;
}

std::string removeArchive(const ArchiveFiles& archive) {
    const int folder = archive.folder->get();
    for (const ArchiveFiles::File& file : archive.files) {
        struct stat now {};
        if (::fstatat(folder, file.name.c_str(), &now, AT_SYMLINK_NOFOLLOW) != 0 || !isSame(now, file.status)) {
            return archive.folderPath + "/" + file.name + " has changed meanwhile";
        }
    }
    for (const ArchiveFiles::File& file : archive.files) {
        if (::unlinkat(folder, file.name.c_str(), 0) != 0 && errno != ENOENT) {
            return archive.folderPath + "/" + file.name + ": " + std::strerror(errno);
        }
    }
    return syncFolder(folder) ? "" : archive.folderPath + ": " + std::strerror(errno);
}

}  // namespace ombrel
