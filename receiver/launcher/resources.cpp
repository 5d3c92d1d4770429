// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/resources.h"

#include <sysexits.h>

#include <algorithm>
#include <fstream>

#include "receiver/launcher/fail.h"
#include "receiver/launcher/log_socket.h"
#include "receiver/launcher/ports.h"
#include "receiver/launcher/receiver_files.h"
#include "receiver/launcher/tls_files.h"

namespace ombrel {

namespace {

// With or without TLS a port is the same port.
bool has(const ReceiverConfig* config, const Source& wanted) {
    return config != nullptr &&
           std::any_of(config->sources.begin(), config->sources.end(), [&](const Source& one) {
               return (one.kind == SourceKind::kUdp) == (wanted.kind == SourceKind::kUdp) &&
                      one.port == wanted.port && one.path == wanted.path;
           });
}

// The two receivers of the network; the settings may give them one port.
struct Sibling {
    const char* name;
    const char* portKey;
    const char* people;
};

Sibling siblingOf(const ReceiverConfig& config) {
    if (config.name == "ietf") return {"bsd", "server_port", "BSD"};
    return {"ietf", "server_ietf_port", "IETF"};
}

int checkPort(const ReceiverConfig& config, const Source& source, const std::string& runFolder) {
    const bool udp = source.kind == SourceKind::kUdp;
    const Sibling sibling = siblingOf(config);
    const PortHolder holder = whoHolds(source, readPid(ReceiverFiles(runFolder, sibling.name).pid));
    if (holder == PortHolder::kProcess) {
        if (udp) return EX_OK;  // each datagram goes to one of the two, and what is in it says its format
        return fail(EX_UNAVAILABLE, config.portKey + "=\"" + std::to_string(source.port) +
                                        "\" is the port of the receiver of " + sibling.people + " messages (" +
                                        sibling.portKey +
                                        "), which is running; over TCP and TLS each needs its own");
    }
    // Not tried where somebody has it: what comes meanwhile could be given to the one who tries.
    const int error = holder == PortHolder::kAnother ? EADDRINUSE : tryToBind(source, config.ipv6);
    if (error == 0) return EX_OK;
    errno = error;
    return failErrno(EX_UNAVAILABLE, "cannot use port " + std::to_string(source.port) + (udp ? "/udp" : "/tcp") +
                                         " (" + config.portKey + ")");
}

int checkLogSocket(const std::string& path) {
    removeStaleLogSocket(path);
    switch (lookAtLogSocket(path)) {
        case LogSocket::kFree:
        case LogSocket::kStale:  // syslog-ng replaces what could not be removed, or says why not
            return EX_OK;
        case LogSocket::kTaken:
            return fail(EX_UNAVAILABLE, "another program collects the logs of this machine at " + path +
                                            "; end it, or switch local archiving off");
        case LogSocket::kOther:
            break;
    }
    return fail(EX_UNAVAILABLE, path + " is in the way: no socket, or a link; remove it");
}

int checkSource(const ReceiverConfig& config, const Source& source, const std::string& runFolder) {
    if (hasPort(source.kind)) return checkPort(config, source, runFolder);
    return source.kind == SourceKind::kLogSocket ? checkLogSocket(source.path) : EX_OK;
}

}  // namespace

pid_t readPid(const std::string& path) {
    std::ifstream file(path);
    pid_t pid = -1;
    return file >> pid && pid > 0 ? pid : -1;
}

int checkResources(const ReceiverConfig& next, const ReceiverConfig* running, const std::string& runFolder) {
    for (const Source& source : next.sources) {
        if (!has(running, source)) {
            if (const int code = checkSource(next, source, runFolder)) return code;
        }
        if (source.kind != SourceKind::kTls) continue;
        const std::string wrong = whatIsWrongWithTlsFiles(next.keyFile, next.certificateFile);
        if (!wrong.empty()) return fail(EX_CONFIG, wrong);
    }
    return EX_OK;
}

}  // namespace ombrel
