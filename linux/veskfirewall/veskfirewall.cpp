// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Takes the ports that are declared now into the firewall of this machine.
#include "platform/veskfirewall.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>

#include <chrono>
#include <cstring>
#include <exception>
#include <filesystem>

#include "linux/common/bounded_file.h"
#include "linux/common/error_record.h"
#include "linux/common/timed_lock.h"
#include "linux/veskfirewall/firewall_rules.h"
#include "linux/veskfirewall/nft_transaction.h"

using namespace ombrel;

namespace {

constexpr const char* kRunFolder = "/var/packages/Ombrel/target/service/run";
constexpr const char* kLockFile = "/var/packages/Ombrel/target/service/run/firewall.lock";
constexpr std::chrono::seconds kLongestWait(10);
constexpr std::size_t kMostSettingsBytes = 65536;

/// The callers have no use for a result, so the reason is told to whoever reads the system log.
int refuse(int code, const std::string& reason, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    ::syslog(LOG_ERR, "veskfirewall: the firewall keeps its old rules: %s", reason.c_str());
    return fail(code, file, line);
}

int refuseErrno(int error, const std::string& what) {
    return refuse(fromErrno(error), what + ": " + std::strerror(error));
}

/// Whoever holds the file is the only one to read the declarations and to act on them, so that the rules of the
/// last to come are made of the newest declarations.
int lockRules(Fd& lock) {
    std::error_code failure;
    if (std::filesystem::create_directories(kRunFolder, failure)) (void)::chmod(kRunFolder, 0700);
    lock.reset(::open(kLockFile, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!lock) return refuseErrno(errno, std::string("cannot open ") + kLockFile);
    if (!lockWithin(lock.get(), LOCK_EX, kLongestWait)) {
        if (errno == EWOULDBLOCK)
            return refuse(kErrorTimeout, std::string(kLockFile) + ": held by another process for 10 s");
        return refuseErrno(errno, std::string("cannot lock ") + kLockFile);
    }
    return 0;
}

int readFirewallSettings(FirewallSettings& settings) {
    const std::string path = std::string(kDeclarationFolder) + "/firewall.conf";
    std::string text;
    const int error = readBounded(path, kMostSettingsBytes, text);
    if (error == ENOENT) return 0;
    if (error != 0) return refuseErrno(error, path);
    SettingsFault fault;
    if (parseFirewallSettings(text, path, settings, fault) != 0) return refuse(fault.code, describe(fault));
    return 0;
}

int takeUpPorts() {
    Fd lock;
    if (lockRules(lock) != 0) return -1;
    FirewallSettings settings;
    if (readFirewallSettings(settings) != 0) return -1;
    std::vector<Declaration> declarations;
    SettingsFault fault;
    if (readDeclarations(kDeclarationFolder, declarations, fault) != 0) return refuse(fault.code, describe(fault));
    std::string reason;
    const int code = runTransaction(renderRules(openPorts(declarations, settings), settings.drops), reason);
    return code == 0 ? 0 : refuse(code, reason);
}

}  // namespace

extern "C" int VESKFwRuleHup(void) {
    try {
        return takeUpPorts();
    } catch (const std::exception&) {
        ::syslog(LOG_ERR, "veskfirewall: the firewall keeps its old rules: out of memory");
        return fail(kErrorOutOfMemory);
    }
}
