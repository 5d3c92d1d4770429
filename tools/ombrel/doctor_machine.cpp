// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The firewall, permissions, the clock and the data.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "linux/common/path_parts.h"
#include "linux/common/progress_bar.h"
#include "ombrel/logarchiver.h"
#include "platform/veskcore.h"
#include "src/fixed_paths.h"
#include "src/platform_handles.h"
#include "tools/ombrel/database_check.h"
#include "tools/ombrel/doctor_checks.h"
#include "tools/ombrel/log_files.h"
#include "tools/ombrel/machine_files.h"
#include "tools/ombrel/machine_ports.h"
#include "tools/ombrel/progress.h"

namespace ombrel {

namespace {

using enum FindingState;

constexpr const char* kService = "/var/packages/Ombrel/target/service";
constexpr long long kYear2024 = 1704067200;  // its first second
constexpr long long kHour = 3600;
constexpr int kListEntries = 1024;

// ---- firewall

struct DeclaredPort {
    PortRanges ranges;
    Protocols protocols;
};

std::string declaredValue(const char* section, const char* key) {
    std::array<char, 4096> value{};
    const int code =
        VLIBCFileGetSectionValue(kPortFile, section, key, value.data(), static_cast<int>(value.size()));
    return code == 0 ? value.data() : "";
}

/// The ports that this package has declared; nothing when its declarations cannot be read.
std::optional<std::vector<DeclaredPort>> declaredPorts() {
    std::vector<DeclaredPort> ports;
    if (VLIBCFileExist(kPortFile) == 0) return ports;
    List sections(VLIBCSzListAlloc(kListEntries));
    const auto list = [](VLIBSZLIST** raw) { return VLIBCFileEnumSection(kPortFile, raw); };
    if (!sections || lend(sections, list) < 0) return std::nullopt;
    for (int i = 0; i < sections->count; ++i) {
        const char* section = VLIBCSzListGet(sections.get(), i);
        if (section == nullptr) continue;
        const auto ranges = parsePorts(declaredValue(section, "port"));
        const auto protocols = parseProtocols(declaredValue(section, "protocol"));
        if (ranges && protocols) ports.push_back({*ranges, *protocols});
    }
    return ports;
}

/// Those of `wanted` that no range of `open` holds whole.
void addKeptOut(const PortRanges& wanted, PortRanges open, const char* protocol, std::string& keptOut) {
    open = merged(std::move(open));
    for (const PortRange& range : wanted) {
        const bool isOpen = std::any_of(open.begin(), open.end(), [&range](const PortRange& each) {
            return each.holds(range.first) && each.holds(range.last);
        });
        if (!isOpen) keptOut += (keptOut.empty() ? "" : ", ") + textOf(range) + "/" + protocol;
    }
}

// ---- permissions

struct OwnPath {
    std::string path;
    unsigned forbidden = 022;  ///< permission bits of others
    bool isRequired = true;
};

Finding permissionFinding(const OwnPath& own) {
    const std::string name = "permissions of " + own.path;
    const auto facts = fileFacts(own.path);
    if (!facts) {
        const int code = errno;
        if (code == EACCES) return {kUnknown, name, "this user cannot look at it", "ask as root"};
        if (code == ENOENT && !own.isRequired) return {kOk, name, "it is not there yet", ""};
        return {kWrong, name, std::strerror(code), "install the package again, or restore it"};
    }
    const unsigned wrong = facts->mode & own.forbidden;
    if (wrong == 0) return {kOk, name, "nobody else can use it", ""};
    return {kWrong, name, std::string("others may ") + ((wrong & 022) != 0 ? "change" : "read") + " it",
            std::string("chmod ") + ((own.forbidden & 044) != 0 ? "go-rwx " : "go-w ") + own.path};
}

/// An archive folder may be a share that many use: then it is only said.
Finding sharedFinding(const std::string& path) {
    const std::string name = "permissions of " + path;
    const auto facts = fileFacts(path);
    constexpr unsigned kSticky = 01000;
    if (!facts) {
        const bool isHidden = errno == EACCES;
        return {isHidden ? kUnknown : kWrong, name, std::strerror(errno), isHidden ? "ask as root" : ""};
    }
    if ((facts->mode & 02) == 0 || (facts->mode & kSticky) != 0) return {kOk, name, "only some can change it", ""};
    return {kWarning, name, "everybody on this machine can change it", "chmod o-w " + path};
}

// ---- data

/// Of the working databases; 0 without any.
long long newestRow(LogArchiver& archiver, const std::vector<LogFile>& files) {
    long long newest = 0;
    for (const LogFile& file : files) {
        if (file.kind == LogFile::Kind::kWorking && archiver.DBCountGet(file.path) > 0)
            newest = std::max(newest, archiver.DBEndTimeGet(file.path));
    }
    return newest;
}

Finding databaseFinding(const std::string& path) {
    const DatabaseCheck check = checkDatabase(path);
    const std::string name = "database " + path;
    if (check.isGood()) return {kOk, name, "it is whole", ""};
    if (check.state == DatabaseCheck::State::kUnknown) return {kUnknown, name, check.what, ""};
    return {kWrong, name, "it is damaged: " + check.what,
            "keep a copy, take it away with ombrel storage move, and restart pkg-Ombrel-syslog if it is in use"};
}

}  // namespace

Findings checkFirewall() {
    const FirewallPorts ports = firewallPorts();
    const std::string name = "firewall";
    if (ports.state == FirewallPorts::State::kNoTable)
        return {{kOk, name, "there is no table of this package, which keeps nothing out", ""}};
    if (ports.state == FirewallPorts::State::kUnknown)
        return {{kUnknown, name, ports.reason, isRoot() ? "" : "ask as root"}};
    if (!ports.drops) return {{kOk, name, "it keeps nothing out", ""}};
    const auto declared = declaredPorts();
    if (!declared) return {{kUnknown, name, std::string(kPortFile) + " cannot be read", ""}};
    std::string keptOut;
    for (const DeclaredPort& port : *declared) {
        if (port.protocols.tcp) addKeptOut(port.ranges, ports.open.tcp, "tcp", keptOut);
        if (port.protocols.udp) addKeptOut(port.ranges, ports.open.udp, "udp", keptOut);
    }
    if (keptOut.empty()) return {{kOk, name, "it lets in all declared ports", ""}};
    return {{kWrong, name, "it keeps out declared ports: " + keptOut,
             "ombrel job restart pkg-Ombrel-custrule takes them up"}};
}

Findings checkPermissions(const SettingsRecord* record) {
    const std::string service = kService;
    Findings findings;
    for (const OwnPath& own :
         {OwnPath{service + "/conf"}, OwnPath{kSettingsFile}, OwnPath{kRuleFile, 022, false},
          OwnPath{service + "/log"}, OwnPath{service + "/run", 077}, OwnPath{service + "/run/token", 077, false}})
        findings.push_back(permissionFinding(own));
    if (record == nullptr || record->arch_dest.empty()) return findings;
    findings.push_back(sharedFinding(record->arch_dest));
    LogArchiver archiver;
    for (const auto& database : archiver.CurrentWorkingDBGet())
        findings.push_back(sharedFinding(database.strDBPath));
    return findings;
}

Findings checkClock() {
    Findings findings;
    const long long now = time(nullptr);
    LogArchiver archiver;
    const long long newest = newestRow(archiver, findLogFiles(archiver, LogPlaces::kWorking).files);
    if (now < kYear2024) {
        findings.push_back({kWrong, "clock", "it shows a time before 2024", "set it: every row gets its time"});
    } else if (newest - now > kHour) {
        findings.push_back({kWrong, "clock",
                            "it is " + durationText(static_cast<double>(newest - now)) + " behind the newest row",
                            "set it: archives are named by their days"});
    } else {
        findings.push_back({kOk, "clock", "it is not behind the newest row", ""});
    }
    const auto isSynchronised = isClockSynchronised();
    if (!isSynchronised) {
        findings.push_back(
            {kUnknown, "time service", "the kernel does not say whether the clock is kept right", ""});
    } else if (*isSynchronised) {
        findings.push_back({kOk, "time service", "the clock is kept right", ""});
    } else {
        findings.push_back(
            {kWarning, "time service", "nothing keeps the clock right", "run one, such as chrony or timesyncd"});
    }
    return findings;
}

Findings checkNewestDatabases(const Context& context) {
    LogArchiver archiver;
    std::vector<std::string> paths;
    if (!archiver.strArchDest.empty()) {
        for (const LogFile& file : findLogFiles(archiver, LogPlaces::kWorking).files)
            paths.push_back(file.path);
        const auto archives = findLogFiles(archiver, LogPlaces::kArchives).files;
        const auto newest = std::find_if(archives.begin(), archives.end(),
                                         [](const LogFile& file) { return file.kind == LogFile::Kind::kArchive; });
        if (newest != archives.end()) paths.push_back(newest->path);
    }
    Findings findings;
    Progress progress(context.err, "checking databases", "files");
    for (const std::string& path : paths) {
        progress.show(findings.size(), paths.size());
        findings.push_back(databaseFinding(path));
    }
    if (paths.empty()) findings.push_back({kOk, "databases", "there is none", ""});
    return findings;
}

}  // namespace ombrel
