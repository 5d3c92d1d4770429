// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What is asked of the storage: shares, check, space.
#include <sys/vfs.h>
#include <sysexits.h>

#include <cerrno>
#include <cstring>

#include "linux/common/progress_bar.h"
#include "ombrel/utils.h"
#include "platform/veskcore.h"
#include "src/platform_handles.h"
#include "tools/ombrel/answer.h"
#include "tools/ombrel/rule_store.h"
#include "tools/ombrel/settings_check.h"
#include "tools/ombrel/settings_file.h"
#include "tools/ombrel/size_words.h"
#include "tools/ombrel/storage_commands.h"
#include "tools/ombrel/table.h"

namespace ombrel {

namespace {

constexpr int kListEntries = 512;

struct ListedShare {
    std::string name;
    std::string path;  ///< empty: it is gone again
    std::optional<unsigned long long> freeBytes;
    bool isInUse = false;
};

/// What ordinary users can still write; nothing, with errno set, when it cannot be told.
std::optional<unsigned long long> freeBytesOf(const std::string& path) {
    struct statfs64 status {};
    if (::statfs64(path.c_str(), &status) != 0) return std::nullopt;
    return static_cast<unsigned long long>(status.f_bsize) * status.f_bavail;
}

std::string pathOf(const std::string& name) {
    Share share;
    const int code = lend(share, [&](VESKSHARE** raw) { return VESKShareGet(name.c_str(), raw); });
    return code < 0 || !share || share->path == nullptr ? "" : share->path;
}

/// Nothing when the shares cannot be listed.
std::optional<std::vector<ListedShare>> shares(const std::string& used) {
    List names(VLIBCSzListAlloc(kListEntries));
    if (!names) return std::nullopt;
    if (lend(names, [](VLIBSZLIST** raw) { return SyslogAvailShareGet(raw); }) < 0) return std::nullopt;
    std::vector<ListedShare> found;
    for (int i = 0; i < names->count; ++i) {
        const char* name = VLIBCSzListGet(names.get(), i);
        if (name == nullptr) continue;
        ListedShare share{name, pathOf(name), {}, used == name};
        if (!share.path.empty()) share.freeBytes = freeBytesOf(share.path);
        found.push_back(std::move(share));
    }
    return found;
}

std::string sharesText(const std::vector<ListedShare>& found, const Terminal& terminal) {
    Table table({{"SHARE"}, {"USE"}, {"FILE SYSTEM"}, {"FREE", Align::kRight}, {"PATH"}});
    for (const ListedShare& share : found) {
        table.add({{share.name},
                   {share.isInUse ? "in use" : "", Colour::kGreen},
                   {"local"},
                   {share.freeBytes ? sizeText(*share.freeBytes) : ""},
                   {share.path}});
    }
    return table.text(terminal);
}

std::string sharesJson(const std::vector<ListedShare>& found) {
    JsonWriter json;
    json.beginObject().key("shares").beginArray();
    for (const ListedShare& share : found) {
        json.beginObject().member("name", share.name).member("path", share.path);
        json.member("file_system", "local").member("free_bytes", share.freeBytes);
        json.member("in_use", share.isInUse).endObject();
    }
    return json.endArray().endObject().takeLine();
}

}  // namespace

int listShares(const Context& context) {
    const SettingsRead read = readSettings();
    if (!read.record) return read.exitCode;
    VLIBCErrSetEx(0, "", 0);
    const auto found = shares(read.record->server_db_loc);
    if (!found) return complain(1, "the shares cannot be listed" + reasonOf(VLIBCErrGet()));
    return endOfOutput(say(context.json ? sharesJson(*found) : sharesText(*found, context.out)));
}

int checkShareCommand(const Context& context, const std::string& name) {
    const std::string why = whyNoShare(name);
    Finding finding{FindingState::kOk, name, "it can hold the log database", ""};
    if (!why.empty())
        finding = {FindingState::kWrong, name, why, "ombrel storage shares lists those that can hold logs"};
    const bool written = say(context.json ? findingsJson({finding}) : findingsText({finding}, context.out));
    return endOfOutput(written, why.empty() ? 0 : 1);
}

int checkSpace(const Context& context, const std::string& path, const std::string& size) {
    const auto needed = parseSize(size);
    if (!needed) return complain(EX_USAGE, "BYTES \"" + size + "\": expected " + kExpectedSize);
    const auto freeBytes = freeBytesOf(path);
    if (!freeBytes) return complain(EX_NOINPUT, path + ": " + std::strerror(errno));
    const bool isEnough = IsVolumeSpaceEnough(path, *needed);
    std::string text = (isEnough ? "enough: " : "not enough: ") + sizeText(*freeBytes) + " free, " +
                       sizeText(*needed) + " asked for\n";
    if (context.json) {
        JsonWriter json;
        json.beginObject().member("path", path).member("enough", isEnough);
        json.member("needed_bytes", *needed).member("free_bytes", *freeBytes);
        text = json.endObject().takeLine();
    }
    return endOfOutput(say(text), isEnough ? 0 : 1);
}

}  // namespace ombrel
