// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The road of a new archive: conversion, host index, ZIP file.
#include "ombrel/postprocessor.h"

#include <cerrno>
#include <cstring>

#include "platform/veskcore.h"
#include "platform/vesksyslog.h"
#include "src/fixed_paths.h"
#include "src/logarchiver_internal.h"
#include "src/scratch_folder.h"

namespace {

constexpr int kHighestZipNumber = 1000;
constexpr const char* kHostIndex = "CREATE INDEX logs_host_idx ON logs (host)";

/// The first of BASE.ZIP, BASE_1.ZIP, ... BASE_1000.ZIP that does not exist; empty when all do.
std::string freeZipName(const std::string& base) {
    std::string name = base + ".ZIP";
    for (unsigned long long number = 1; VLIBCFileExist(name.c_str()) != 0; ++number) {
        if (number > kHighestZipNumber) {
            Debuger::MSG(0, "Cannot find propriate archive destination");
            return {};
        }
        name = base + "_" + ullNumberToString(number) + ".ZIP";
    }
    return name;
}

}  // namespace

PostProcessor::PostProcessor() {
    if (ConfigLoad(kSettingsFile) < 0) Debuger::MSG(0, "Fail to load configuration");
}

PostProcessor::~PostProcessor() = default;

int PostProcessor::ConfigLoad(std::string path) {
    _SYSLOG_CONF_SETTINGS_tag settings;
    if (SyslogConfGet(path, settings) < 0) {
        Debuger::MSG(0, "Fail to get syslog configuration");
        return -1;
    }
    ArchFmt = settings.arch_fmt;
    Compress = settings.arch_compress;
    return 0;
}

std::string PostProcessor::TranTempDirGet(std::string path) {
    std::string folder = ombrel::scratchFolderOf(path);
    if (!folder.empty() && ombrel::makeScratchFolder(folder) < 0) {
        Debuger::MSG(0, "Fail to create folder: " + folder);
    }
    return folder;
}

int PostProcessor::DBTransform(std::string db, _SYSLOG_ARCH_FMT_tag fmt) {
    const std::string base = withoutExtension(db);
    if (fmt == SYSLOG_ARCH_FMT_TXT) {
        if (DB2TXT(db, base + ".TXT") >= 0) return 0;
        Debuger::MSG(0, "Fail to transform db to txt");
        return -1;
    }
    if (fmt == SYSLOG_ARCH_FMT_XML) {
        if (DB2XML(db, base + ".XML") >= 0) return 0;
        Debuger::MSG(0, "Fail to transform db to xml");
        return -1;
    }
    Debuger::MSG(0, "Invalid db transfrom foramt");
    return -1;
}

int PostProcessor::DB2XML(std::string /*db*/, std::string /*out*/) {
    return 0;
}

int PostProcessor::DBIndexAdd(std::string db) {
    DBHandler handler(db, kSchemaFile);
    int result = -1;
    if (handler.DBCon() < 0) {
        Debuger::MSG(0, "Fail to connect db");
    } else {
        (void)handler.DBTranStart();
        if (handler.DBExecute(kHostIndex) >= 0) {
            (void)handler.DBTranEnd();
            result = 0;
        } else {
            Debuger::MSG(0, std::string("Fail to execute SQL cmd") + kHostIndex);
        }
    }
    (void)handler.DBDiscon();  // discards what was not committed
    return result;
}

int PostProcessor::FileCompress(std::string file, std::string file2, std::string zip) {
    const char* second = file2.empty() ? nullptr : file2.c_str();
    if (VLIBCExec("/usr/bin/zip", "-m", zip.c_str(), file.c_str(), second) >= 0) return 0;
    const std::string reason = strerror(errno);
    Debuger::MSG(0, "Fail to compress file: " + zip + "," + file + " " + reason);
    return -1;
}

int PostProcessor::PostProcess(std::string db) {
    if (ArchFmt != SYSLOG_ARCH_FMT_DB) {
        Debuger::MSG(2, "Do database transformation!!");
        if (DBTransform(db, ArchFmt) < 0) {
            Debuger::MSG(0, "Fail to transform db: " + db);
            return -1;
        }
    }
    if (Compress == 0) return 0;
    Debuger::MSG(2, "Do database compression!!");
    const std::string base = withoutExtension(db);
    const std::string text = ArchFmt == SYSLOG_ARCH_FMT_TXT ? base + ".TXT" : std::string();
    const std::string zip = freeZipName(base);
    if (zip.empty()) return -1;
    if (FileCompress(db, text, zip) < 0) {
        Debuger::MSG(0, "Fail to compress file");
        return -1;
    }
    return 0;
}
