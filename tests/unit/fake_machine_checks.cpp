// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tests/unit/fake_machine_checks.h"

#include <sys/stat.h>

#include "linux/common/tls_files.h"
#include "tests/fake/fake_platform.h"
#include "tests/unit/fake_machine.h"

namespace ombrel {

using test::fakeMachine;

std::optional<FileFacts> fileFacts(const std::string& path) {
    const auto given = fakeMachine().checked.files.find(path);
    if (given != fakeMachine().checked.files.end()) return given->second;
    struct stat status {};
    if (::lstat(test::FakePlatform::current().real(path).c_str(), &status) != 0) return std::nullopt;
    using enum FileFacts::Kind;
    FileFacts facts{S_ISDIR(status.st_mode) ? kFolder : kFile, 0700, 0, true, true, true};
    return facts;
}

bool isRoot() {
    return fakeMachine().checked.isRoot;
}

std::optional<bool> isClockSynchronised() {
    return fakeMachine().checked.isClockSynchronised;
}

std::string whatIsWrongWithTlsFiles(const std::string& /*keyFile*/, const std::string& /*certificateFile*/) {
    return fakeMachine().checked.tlsFault;
}

namespace {

std::string portName(int port, bool isUdp) {
    return std::to_string(port) + (isUdp ? "/udp" : "/tcp");
}

}  // namespace

std::optional<PortUsers> portUsers(int port, bool isUdp) {
    const test::CheckedMachine& machine = fakeMachine().checked;
    if (!machine.arePortsKnown) return std::nullopt;
    const auto found = machine.ports.find(portName(port, isUdp));
    return found == machine.ports.end() ? PortUsers{} : found->second;
}

std::optional<std::set<std::string>> ownPorts() {
    return fakeMachine().checked.ownPorts;
}

int bindPort(int port, bool isUdp) {
    const auto found = fakeMachine().checked.bindErrors.find(portName(port, isUdp));
    return found == fakeMachine().checked.bindErrors.end() ? 0 : found->second;
}

FirewallPorts firewallPorts() {
    return fakeMachine().checked.firewall;
}

}  // namespace ombrel
