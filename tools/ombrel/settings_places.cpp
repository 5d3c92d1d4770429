// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Whether logs can be kept where the settings say.
#include <cerrno>
#include <cstring>

#include "linux/common/progress_bar.h"
#include "ombrel/logarchiver.h"
#include "ombrel/utils.h"
#include "platform/veskcore.h"
#include "platform/vesksdk.h"
#include "src/platform_handles.h"
#include "tools/ombrel/folder_listing.h"
#include "tools/ombrel/machine_files.h"
#include "tools/ombrel/rule_store.h"
#include "tools/ombrel/settings_check.h"

namespace ombrel {

namespace {

using enum FindingState;

constexpr unsigned long long kReserveBytes = 64ULL << 20;
constexpr const char* kExpectedFolder = "expected a folder on a local file system that can be written to";

/// Of those that there are now, wherever they lie.
unsigned long long bytesOfWorkingDatabases() {
    LogArchiver archiver;
    unsigned long long bytes = 0;
    for (const auto& database : archiver.CurrentWorkingDBGet()) {
        if (const auto entry = fileEntry(database.strDBPath)) bytes += entry->bytes;
    }
    return bytes;
}

/// Why a folder cannot be written to; nothing when it can.
std::optional<Finding> whyNotWritable(const std::string& folder, const std::string& quoted) {
    const auto facts = fileFacts(folder);
    if (!facts) {
        const int code = errno;
        const bool isHidden = code == EACCES && !isRoot();
        return Finding{isHidden ? kUnknown : kWrong, "arch_dest", quoted + std::strerror(code), kExpectedFolder};
    }
    if (facts->kind != FileFacts::Kind::kFolder)
        return Finding{kWrong, "arch_dest", quoted + "it is no folder", kExpectedFolder};
    if (facts->mayWrite) return std::nullopt;
    if (isRoot()) return Finding{kWrong, "arch_dest", quoted + "it cannot be written to", kExpectedFolder};
    return Finding{kUnknown, "arch_dest", quoted + "this user cannot write to it; root may", "ask as root"};
}

}  // namespace

PlaceFault whyNotLocal(const std::string& path) {
    VLIBCErrSetEx(0, "", 0);
    const int type = VESKGetFSType(path.c_str(), 0);
    if (type < 0) return {"its file system cannot be told" + reasonOf(VLIBCErrGet()), true};
    if (VESKFSIsRemoteFS(type) != 0) return {"it lies on a network file system", false};
    if (VESKFSIsImageFS(type) != 0) return {"it lies on a disk image", false};
    return {};
}

std::string whyNoShare(const std::string& name) {
    if (SyslogIsShareValid(name)) return {};
    if (name.empty()) return "a share has a name";
    Share share;
    VLIBCErrSetEx(0, "", 0);
    const int code = lend(share, [&](VESKSHARE** raw) { return VESKShareGet(name.c_str(), raw); });
    if (code < 0 || !share) return "there is no such share" + reasonOf(VLIBCErrGet());
    if (share->path == nullptr || *share->path == '\0') return "it has no folder";
    const PlaceFault fault = whyNotLocal(share->path);
    return fault.what.empty() ? "it cannot hold a database" : share->path + (": " + fault.what);
}

Finding checkArchiveFolder(const std::string& folder) {
    const std::string quoted = "arch_dest=\"" + folder + "\": ";
    if (folder.empty())
        return {kWrong, "arch_dest", quoted + "nothing that is received can be kept", kExpectedFolder};
    if (const auto fault = whyNotWritable(folder, quoted)) return *fault;
    if (const PlaceFault fault = whyNotLocal(folder); !fault.what.empty())
        return {fault.isUnknown ? kUnknown : kWrong, "arch_dest", quoted + fault.what, kExpectedFolder};
    const unsigned long long needed = bytesOfWorkingDatabases() + kReserveBytes;
    if (!IsVolumeSpaceEnough(folder, needed)) {
        return {kWrong, "arch_dest", quoted + "less than " + sizeText(needed) + " are free",
                "expected room for the working databases and " + sizeText(kReserveBytes) + " more"};
    }
    return {kOk, "arch_dest", folder + " is a local folder that can be written to, with room", ""};
}

Finding checkShare(const std::string& name) {
    if (name.empty()) return {kOk, "server_db_loc", "no share is named", ""};
    const std::string why = whyNoShare(name);
    if (why.empty()) return {kOk, "server_db_loc", "the share \"" + name + "\" is local", ""};
    return {kWrong, "server_db_loc", "server_db_loc=\"" + name + "\": " + why,
            "expected a share on a local file system; ombrel storage shares lists them"};
}

}  // namespace ombrel
