// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/resources.h"

#include <sysexits.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "linux/common/tls_files.h"
#include "receiver/launcher/fail.h"
#include "receiver/launcher/log_socket.h"
#include "receiver/launcher/ports.h"
#include "receiver/launcher/receiver_files.h"
#include "receiver/rules/rule_sources.h"

namespace ombrel {

namespace {

struct Trouble {
    int code;
    std::string text;
};
using MaybeTrouble = std::optional<Trouble>;

// The receivers of the network; settings and rules may give them one port.
struct Neighbour {
    const char* name;
    const char* people;
    bool sharesUdpPorts;
};
constexpr std::array<Neighbour, 3> kNeighbours = {
    {{"bsd", "the receiver of BSD messages (server_port)", true},
     {"ietf", "the receiver of IETF messages (server_ietf_port)", true},
     {"custrule", "a receiving rule (custrule.conf)", false}}};

std::string portSetting(const Source& source) {
    return source.portKey + "=\"" + std::to_string(source.port) + "\"";
}

/// Looks at sources one by one, and at the machine once for all of them.
class Inspection {
public:
    Inspection(const ReceiverConfig& next, const ReceiverConfig* running, const std::string& runFolder,
               const std::vector<ReservedPort>& reserved)
        : next_(next), runFolder_(runFolder), reserved_(reserved) {
        if (running == nullptr) return;
        for (const Source& source : running->sources)
            owned_.insert({portKeyOf(source), source.path});
    }

    MaybeTrouble troubleWith(const Source& source) {
        if (!has(source)) {
            if (hasPort(source.kind)) {
                if (auto trouble = troubleWithPort(source)) return trouble;
            }
            if (source.kind == SourceKind::kLogSocket) return troubleWithLogSocket(source.path);
        }
        if (source.kind != SourceKind::kTls || troubleWithTls().empty()) return std::nullopt;
        return Trouble{EX_CONFIG, troubleWithTls()};
    }
    [[nodiscard]] bool has(const Source& source) const {
        return owned_.contains({portKeyOf(source), source.path});
    }

private:
    struct Other {
        const Neighbour* who;
        std::set<Inode> sockets;
    };

    void lookAtNeighbours() {
        if (table_) return;
        table_.emplace();
        for (const Neighbour& who : kNeighbours) {
            if (next_.name != who.name)
                others_.push_back({&who, socketsOf(readPid(ReceiverFiles(runFolder_, who.name).pid))});
        }
    }

    MaybeTrouble troubleWithPort(const Source& source) {
        lookAtNeighbours();
        const bool udp = source.kind == SourceKind::kUdp;
        for (const Other& other : others_) {
            if (table_->whoHolds(source, other.sockets) != PortHolder::kProcess) continue;
            const bool share = next_.sharesUdpPorts && other.who->sharesUdpPorts;
            // Each datagram goes to one of the two, and what is in it says its format.
            if (udp && share) return std::nullopt;
            const char* const state = other.who->sharesUdpPorts ? ", which is running" : "";
            return Trouble{EX_UNAVAILABLE, portSetting(source) + " is the port of " + other.who->people + state +
                                               (share ? "; over TCP and TLS each" : "; each") + " needs its own"};
        }
        if (const char* const people = whoHasReserved(source)) {
            return Trouble{EX_UNAVAILABLE, portSetting(source) + " is the port of " + people +
                                               ", which is switched on; each needs its own"};
        }
        // Not tried where somebody has it: what comes meanwhile could be given to the one who tries.
        const bool taken = table_->whoHolds(source, {}) != PortHolder::kNobody;
        const int error = taken ? EADDRINUSE : tryToBind(source, next_.ipv6);
        if (error == 0) return std::nullopt;
        return Trouble{EX_UNAVAILABLE, portSetting(source) + ": cannot use port " + std::to_string(source.port) +
                                           (udp ? "/udp: " : "/tcp: ") + std::strerror(error)};
    }

    [[nodiscard]] const char* whoHasReserved(const Source& source) const {
        for (const ReservedPort& reserved : reserved_) {
            if (reserved.port != portKeyOf(source)) continue;
            for (const Neighbour& who : kNeighbours) {
                if (reserved.receiver == who.name) return who.people;
            }
        }
        return nullptr;
    }

    static MaybeTrouble troubleWithLogSocket(const std::string& path) {
        removeStaleLogSocket(path);
        switch (lookAtLogSocket(path)) {
            case LogSocket::kFree:
            case LogSocket::kStale:  // syslog-ng replaces what could not be removed, or says why not
                return std::nullopt;
            case LogSocket::kTaken:
                return Trouble{EX_UNAVAILABLE, "another program collects the logs of this machine at " + path +
                                                   "; end it, or switch local archiving off"};
            case LogSocket::kOther:
                break;
        }
        return Trouble{EX_UNAVAILABLE, path + " is in the way: no socket, or a link; remove it"};
    }

    const std::string& troubleWithTls() {
        if (!tls_) tls_ = whatIsWrongWithTlsFiles(next_.keyFile, next_.certificateFile);
        return *tls_;
    }

    const ReceiverConfig& next_;
    const std::string& runFolder_;
    const std::vector<ReservedPort>& reserved_;
    std::set<std::pair<PortKey, std::string>> owned_;
    std::optional<PortTable> table_;
    std::vector<Other> others_;
    std::optional<std::string> tls_;
};

}  // namespace

pid_t readPid(const std::string& path) {
    std::ifstream file(path);
    pid_t pid = -1;
    return file >> pid && pid > 0 ? pid : -1;
}

int checkResources(const ReceiverConfig& next, const ReceiverConfig* running, const std::string& runFolder) {
    const std::vector<ReservedPort> none;
    Inspection inspection(next, running, runFolder, none);
    for (const Source& source : next.sources) {
        if (const auto trouble = inspection.troubleWith(source)) return fail(trouble->code, trouble->text);
    }
    return EX_OK;
}

bool leaveOutUnusable(ReceiverConfig& next, const ReceiverConfig* running, const std::string& runFolder,
                      const std::vector<ReservedPort>& reserved) {
    Inspection inspection(next, running, runFolder, reserved);
    // What is in use already stays so, whatever has become of its key since.
    const bool keeps =
        running != nullptr && running->keyFile == next.keyFile && running->certificateFile == next.certificateFile;
    std::vector<Source> usable;
    for (Source& source : next.sources) {
        const auto trouble = keeps && inspection.has(source) ? std::nullopt : inspection.troubleWith(source);
        if (trouble) {
            next.remarks.push_back(leftOutLine(source.rule, trouble->text));
        } else {
            usable.push_back(std::move(source));
        }
    }
    const bool any = usable.size() < next.sources.size();
    next.sources = std::move(usable);
    return any;
}

}  // namespace ombrel
