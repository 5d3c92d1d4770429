// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The folders that the upgrade of the log databases works in, from the settings file.
#include <syslog.h>

#include <string>

#include "ombrel/utils.h"
#include "ombrel/utils_updater.h"
#include "src/fixed_paths.h"
#include "src/no_throw.h"
#include "src/platform_handles.h"
#include "src/scratch_folder.h"

namespace {

using ombrel::lend;
using ombrel::orFailure;
using ombrel::Share;
using Settings = _SYSLOG_CONF_SETTINGS_tag;

constexpr const char* kUnit = "utils_updater";

std::string pathOfShare(const std::string& name) {
    Share share;
    if (lend(share, [&](VESKSHARE** out) { return VESKShareGet(name.c_str(), out); }) < 0) {
        syslog(LOG_ERR, "%s:%d Fail to get share information ", kUnit, 40);
        return {};
    }
    return share == nullptr || share->path == nullptr ? std::string() : share->path;
}

std::string madeScratchFolderOf(const std::string& databasePath) {
    std::string folder = ombrel::scratchFolderOf(databasePath);
    if (!folder.empty() && ombrel::makeScratchFolder(folder) < 0) {
        syslog(LOG_ERR, "%s:%d Fail to create folder: %s", kUnit, 90, folder.c_str());
    }
    return folder;
}

/// What `folderOf` makes of the settings; empty when they cannot be read.
template <typename FolderOf>
std::string fromSettings(FolderOf folderOf) noexcept {
    return orFailure(std::string(), [&] {
        Settings settings;
        if (SyslogConfGet(kSettingsFile, settings) < 0) return std::string();
        return folderOf(settings);
    });
}

}  // namespace

std::string SyslogUpdaterServiceFolderGet() {
    return fromSettings([](const Settings& settings) { return pathOfShare(settings.server_db_loc); });
}

std::string SyslogUpdaterArchiveFolderGet() {
    return fromSettings([](const Settings& settings) { return settings.arch_dest; });
}

std::string SyslogUpdaterVolTmpFolderGet() {
    return fromSettings([](const Settings& settings) { return madeScratchFolderOf(settings.server_db_path); });
}
