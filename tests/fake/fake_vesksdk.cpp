// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Shares, file-system types, folders and the file copy of the fake platform.
#include "platform/vesksdk.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "platform/veskfileop.h"
#include "tests/fake/fake_objects.h"
#include "tests/fake/fake_platform.h"

namespace fs = std::filesystem;
using ombrel::test::CopyManner;
using ombrel::test::FakePlatform;
using ombrel::test::FakeShare;
using ombrel::test::ShareKind;

namespace {

constexpr int kLocalType = 1;
constexpr int kImageType = 10;
constexpr int kRemoteType = 20;

/// The offsets of the integers that are 1; any other byte that is not zero is told apart.
std::string shownOptions(const VESK_COPY_OPTIONS& options) {
    std::string text;
    for (std::size_t offset = 0; offset < sizeof(options); offset += sizeof(int)) {
        int value = 0;
        std::memcpy(&value, reinterpret_cast<const char*>(&options) + offset, sizeof(value));
        if (value == 0) continue;
        if (!text.empty()) text += " ";
        text += std::to_string(offset);
        if (value != 1) text += "=" + std::to_string(value);
    }
    return text;
}

}  // namespace

extern "C" {

int VESKShareGet(const char* name, VESKSHARE** share) {
    FakePlatform& platform = FakePlatform::current();
    const bool fails = platform.calls.enter("VESKShareGet", name);
    const auto found = std::find_if(platform.shares.begin(), platform.shares.end(),
                                    [name](const FakePlatform::ShareEntry& entry) { return entry.name == name; });
    const bool missing = found == platform.shares.end() || found->kind == ShareKind::kNotFound;
    if ((fails || missing) && !platform.failuresHandOutObjects) return -1;
    if (!missing && found->kind == ShareKind::kWithoutRecord) return fails ? -1 : 0;
    auto* record = new FakeShare;
    record->text = found == platform.shares.end() ? "" : found->path;
    const bool withoutPath = !missing && found->kind == ShareKind::kWithoutPath;
    record->path = withoutPath ? nullptr : record->text.c_str();
    platform.live.add("share", record);
    *share = record;
    return fails || missing ? -1 : 0;
}

int VESKShareEnum(VLIBSZLIST** list, int flags) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VESKShareEnum", flags)) return -1;
    std::vector<std::string> names;
    for (const FakePlatform::ShareEntry& entry : platform.shares)
        names.push_back(entry.name);
    ombrel::test::pushMoving(list, names);
    return 0;
}

void VESKShareFree(VESKSHARE* share) {
    FakePlatform& platform = FakePlatform::current();
    platform.calls.note("VESKShareFree");
    if (share != nullptr && platform.live.remove("share", share)) delete static_cast<FakeShare*>(share);
}

int VESKGetFSType(const char* path, int flags) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VESKGetFSType", path, flags)) return -1;
    for (const FakePlatform::ShareEntry& entry : platform.shares) {
        if (entry.path != path) continue;
        if (entry.kind == ShareKind::kImage) return kImageType;
        if (entry.kind == ShareKind::kRemote) return kRemoteType;
        return entry.kind == ShareKind::kLocal ? kLocalType : -1;
    }
    return -1;
}

int VESKFSIsImageFS(int type) {
    FakePlatform& platform = FakePlatform::current();
    // A failing question answers "yes": nobody may trust the file system then.
    if (platform.calls.enter("VESKFSIsImageFS", type)) return 1;
    return type == kImageType ? platform.yes : 0;
}

int VESKFSIsRemoteFS(int type) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VESKFSIsRemoteFS", type)) return 1;
    return type == kRemoteType ? platform.yes : 0;
}

int VESKFSMkdirP(const char* path, int a, int b, int uid, int gid, int mode) {
    FakePlatform& platform = FakePlatform::current();
    char octal[16];
    (void)std::snprintf(octal, sizeof(octal), "%04o", static_cast<unsigned>(mode));
    std::string line = "VESKFSMkdirP(" + ombrel::test::quoted(path);
    for (const int argument : {a, b, uid, gid})
        line += ", " + std::to_string(argument);
    if (platform.calls.enterLine("VESKFSMkdirP", line + ", " + octal + ")")) return -1;
    std::error_code failure;
    (void)fs::create_directories(platform.real(path), failure);
    if (failure) errno = failure.value();
    return failure ? -1 : 0;
}

int VESKFileCopy(const char* from, const char* to, const VESK_COPY_OPTIONS* options) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VESKFileCopy", from, to, shownOptions(*options))) return -1;
    if (platform.exists(to) || !platform.exists(from)) return -1;
    std::error_code failure;
    if (platform.copyManner == CopyManner::kCopy) {
        (void)fs::copy_file(platform.real(from), platform.real(to), failure);
    } else {
        fs::rename(platform.real(from), platform.real(to), failure);
    }
    if (failure) return 1;  // any other value than 0 is a failure, a positive one too
    if (platform.copyManner == CopyManner::kMoveThenFresh) platform.addFile(from, "a fresh file");
    return 0;
}

}  // extern "C"
