// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Hashes, lists, folders, processes and the error record of the fake platform.
#include "platform/veskcore.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "tests/fake/fake_objects.h"
#include "tests/fake/fake_platform.h"

namespace fs = std::filesystem;
using ombrel::test::FakeList;
using ombrel::test::FakePlatform;

namespace ombrel::test {

void FakeList::push(const std::string& text) {
    texts.push_back(std::make_shared<std::string>(text));
    pointers.push_back(texts.back()->data());
    items = pointers.data();
    ++count;
    capacity = std::max(capacity, count);
}

void pushMoving(VLIBSZLIST** list, const std::vector<std::string>& texts) {
    auto& live = FakePlatform::current().live;
    if (!live.contains("list", *list)) {
        live.misuse("push to a list that is not alive");
        return;
    }
    auto* old = static_cast<FakeList*>(*list);
    auto* moved = new FakeList(*old);
    live.add("list", moved);
    for (const std::string& text : texts)
        moved->push(text);
    (void)live.remove("list", old);
    delete old;
    *list = moved;
}

}  // namespace ombrel::test

extern "C" {

VLIBSZHASH* VLIBCSzHashAlloc(int entries) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBCSzHashAlloc", entries)) return nullptr;
    auto* hash = new VLIBSZHASH;
    platform.live.add("hash", hash);
    return hash;
}

int VLIBCSzHashSetValue(VLIBSZHASH* hash, const char* key, const char* value) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBCSzHashSetValue", key, value)) return -1;
    if (!platform.live.contains("hash", hash) || key == nullptr || value == nullptr) return -1;
    hash->values.set(key, value);
    return 0;
}

const char* VLIBCSzHashGetValue(const VLIBSZHASH* hash, const char* key) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBCSzHashGetValue", key)) return nullptr;
    if (!platform.live.contains("hash", hash) || key == nullptr) return nullptr;
    const std::string* found = hash->values.find(key);
    return found == nullptr ? nullptr : found->c_str();
}

void VLIBCSzHashFree(VLIBSZHASH* hash) {
    FakePlatform& platform = FakePlatform::current();
    platform.calls.note("VLIBCSzHashFree");
    if (hash != nullptr && platform.live.remove("hash", hash)) delete hash;
}

VLIBSZLIST* VLIBCSzListAlloc(int capacity) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBCSzListAlloc", capacity)) return nullptr;
    auto* list = new FakeList(capacity);
    platform.live.add("list", list);
    return list;
}

const char* VLIBCSzListGet(const VLIBSZLIST* list, int index) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBCSzListGet", index)) return nullptr;
    if (!platform.live.contains("list", list) || index < 0 || index >= list->count) return nullptr;
    return list->items[index];
}

int VLIBCSzListPush(VLIBSZLIST** list, const char* text) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBCSzListPush", text)) return -1;
    if (list == nullptr || *list == nullptr || text == nullptr) return -1;
    ombrel::test::pushMoving(list, {text});
    return 0;
}

void VLIBCSzListFree(VLIBSZLIST* list) {
    FakePlatform& platform = FakePlatform::current();
    platform.calls.note("VLIBCSzListFree");
    if (list != nullptr && platform.live.remove("list", list)) delete static_cast<FakeList*>(list);
}

int VLIBCFileExist(const char* path) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBCFileExist", path)) return 0;
    if (path == nullptr) return 0;
    const auto answer = platform.existAnswers.find(path);
    if (answer != platform.existAnswers.end()) return answer->second;
    std::error_code failure;
    const auto type = fs::symlink_status(platform.real(path), failure).type();
    if (type == fs::file_type::not_found || *path == '\0') return 0;
    return type == fs::file_type::none ? -1 : 1;  // it may be that it cannot be told
}

int VLIBCFileEnumDir(const char* dir, int flags, VLIBSZLIST** list, int typeMask) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBCFileEnumDir", dir, flags, typeMask)) return -1;
    std::error_code failure;
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(platform.real(dir), failure)) {
        const bool isFolder = entry.symlink_status().type() == fs::file_type::directory;
        if (isFolder && (typeMask & 0x40) != 0) names.push_back(entry.path().filename().string());
    }
    if (failure) {
        errno = failure.value();
        return -1;
    }
    // No caller may take the order for an alphabetical one.
    std::sort(names.rbegin(), names.rend());
    ombrel::test::pushMoving(list, names);
    return 0;
}

int VLIBCProcForkChildNoWait(void) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBCProcForkChildNoWait")) return -1;
    return platform.forkResult;
}

int VLIBCExecv(const char* path, char* const argv[], int flags) {
    FakePlatform& platform = FakePlatform::current();
    std::string line = "VLIBCExecv(" + ombrel::test::quoted(path) + ", [";
    const char* separator = "";
    for (char* const* argument = argv; *argument != nullptr; ++argument) {
        line += separator + ombrel::test::quoted(*argument);
        separator = ", ";
    }
    line += "], " + std::to_string(flags) + ")";
    if (platform.calls.enterLine("VLIBCExecv", line)) return -1;
    if (platform.execReturns) return *platform.execReturns;
    // Only a child may become another program; in a test's own process this would end the tests.
    if (platform.forkResult == 0) _exit(FakePlatform::kExecutedExitCode);
    platform.live.misuse("VLIBCExecv in the parent");
    return -1;
}

int VLIBCErrGet(void) {
    return FakePlatform::current().error.code;
}

const char* VLIBCErrorGetFile(void) {
    return FakePlatform::current().error.file.c_str();
}

int VLIBCErrorGetLine(void) {
    return FakePlatform::current().error.line;
}

void VLIBCErrSetEx(int code, const char* file, int line) {
    FakePlatform& platform = FakePlatform::current();
    platform.calls.note("VLIBCErrSetEx", code, file, line);
    platform.error = {code, file == nullptr ? "" : file, line};
}

}  // extern "C"
