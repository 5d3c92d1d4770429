// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Jobs, system services and port declarations of the fake platform.
#include "platform/veskserviceconf.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/veskfirewall.h"
#include "tests/fake/fake_platform.h"
#include "tests/fake/settings_text.h"

using ombrel::test::FakePlatform;
using ombrel::test::Section;
using ombrel::test::SectionedText;

// Released with free(), so allocated with malloc() and without members that own anything.
struct VESK_PORT_INFO {
    VESK_PORT_REQUEST request;
};
struct VESK_SECTION_INFO {
    VESK_SECTION_DESCRIPTION description;
    VESK_PORT_INFO port;
};
struct VESK_SERVICE_PORTS {
    int unused;
};

namespace {

int& jobState(FakePlatform& platform, const char* job) {
    return platform.jobs[job];
}

template <std::size_t N>
std::string bounded(const char (&text)[N]) {
    return {text, strnlen(text, N)};
}

std::string place(const VESK_SECTION_REQUEST& request) {
    return bounded(request.file) + "[" + bounded(request.section) + "]";
}

template <std::size_t N>
bool isClean(const char (&bytes)[N], std::size_t from = 0) {
    return std::all_of(bytes + from, bytes + N, [](char c) { return c == 0; });
}

/// A text field ends with a NUL and holds nothing behind it.
template <std::size_t N>
bool isCleanText(const char (&text)[N]) {
    const std::size_t length = strnlen(text, N);
    return length < N && isClean(text, length);
}

std::string words(const VESK_SECTION_REQUEST& request) {
    std::string text;
    for (const int word : {request.word0, request.word1, request.action, request.word3, request.word4}) {
        text += std::to_string(word) + " ";
    }
    const bool clean = isCleanText(request.file) && isCleanText(request.section) && isClean(request.unused);
    return text + (clean ? "zero" : "DIRTY");
}

bool isClean(const VESK_SECTION_DESCRIPTION& description) {
    return isCleanText(description.name) && isClean(description.unused1) &&
           isCleanText(description.display_name) && isCleanText(description.description) &&
           isClean(description.unused2) && description.unused3 == 0 && description.reserved == nullptr &&
           description.unused4 == nullptr;
}

std::string declarationFile(const VESK_SECTION_REQUEST& request) {
    return "/usr/local/etc/services.d/" + bounded(request.file);
}

Section declaration(const VESK_SECTION_INFO& info) {
    const VESK_PORT_REQUEST& port = info.port.request;
    const auto line = [](const std::string& key, const std::string& value) { return key + "=\"" + value + "\""; };
    return {bounded(info.description.name),
            {line("display_name", bounded(info.description.display_name)),
             line("description", bounded(info.description.description)),
             line("protocol", port.protocol == 2 ? "udp" : "tcp"), line("port", std::to_string(port.port))}};
}

bool isPortText(const std::string& text) {
    const bool digits = std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    return digits && !text.empty() && text.size() <= 5 && std::stoi(text) >= 1 && std::stoi(text) <= 65535;
}

bool isStorable(const Section& section) {
    return !section.name.empty() && section.name.find(']') == std::string::npos &&
           ombrel::test::isStorable(section.name) &&
           std::all_of(section.lines.begin(), section.lines.end(), ombrel::test::isStorable);
}

/// Whether a section of any declaration file, other than those of that name, declares the port; as single
/// ports are written.
bool isDeclared(const FakePlatform& platform, const std::string& service, const std::string& port,
                const std::string& protocol) {
    constexpr const char* kFolder = "/usr/local/etc/services.d";
    if (!platform.exists(kFolder)) return false;
    for (const std::string& path : platform.filesBelow(kFolder)) {
        for (const Section& section : SectionedText(platform.read(path).value_or("")).sections) {
            const ombrel::test::KeyValues keys = section.keys();
            const std::string* declaredPort = keys.find("port");
            const std::string* declaredProtocol = keys.find("protocol");
            if (section.name != service && declaredPort != nullptr && *declaredPort == port &&
                declaredProtocol != nullptr && *declaredProtocol == protocol)
                return true;
        }
    }
    return false;
}

}  // namespace

extern "C" {

int VLIBServicectlJobStart(const char* job) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBServicectlJobStart", job)) return -1;
    jobState(platform, job) = 1;
    return 0;
}

int VLIBServicectlJobStop(const char* job) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBServicectlJobStop", job)) return -1;
    jobState(platform, job) = 0;
    return 0;
}

int VLIBServicectlJobReload(const char* job) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBServicectlJobReload", job)) return -1;
    return jobState(platform, job) != 0 ? 0 : -1;
}

int VLIBServicectlRestart(const char* job, int flags) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBServicectlRestart", job, flags)) return -1;
    jobState(platform, job) = 1;
    return 0;
}

int VLIBServicectlIsJobRunning(const char* job, int flags) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBServicectlIsJobRunning", job, flags)) return 0;
    return jobState(platform, job);
}

int VLIBServiceStart(const char* service, int flags) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBServiceStart", service, flags)) return -1;
    platform.services[service] = true;
    return 0;
}

int VLIBServiceStop(const char* service, int flags) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBServiceStop", service, flags)) return -1;
    platform.services[service] = false;
    return 0;
}

int VESKServiceComposePortInfo(const VESK_PORT_REQUEST* request, VESK_PORT_INFO** info) {
    FakePlatform& platform = FakePlatform::current();
    const bool fails = platform.calls.enter("VESKServiceComposePortInfo", request->kind, request->zero,
                                            request->protocol, request->port);
    if (request->reserved1 != nullptr || request->reserved2 != nullptr) platform.live.misuse("dirty port request");
    if (fails && !platform.failuresHandOutObjects) return -1;
    *info = static_cast<VESK_PORT_INFO*>(std::malloc(sizeof(VESK_PORT_INFO)));
    if (*info == nullptr) return -1;
    (*info)->request = *request;
    platform.live.add("port info", *info);
    return fails ? -1 : 0;
}

int VESKServiceComposeSectionInfo(const VESK_SECTION_DESCRIPTION* description, VESK_SECTION_INFO** info) {
    FakePlatform& platform = FakePlatform::current();
    const bool fails = platform.calls.enter("VESKServiceComposeSectionInfo", bounded(description->name),
                                            bounded(description->display_name), bounded(description->description),
                                            description->kind);
    if (!isClean(*description)) platform.live.misuse("dirty section description");
    if (!platform.live.contains("port info", description->port_info)) {
        platform.live.misuse("a section composed without a live port");
        return -1;
    }
    if (fails && !platform.failuresHandOutObjects) return -1;
    *info = static_cast<VESK_SECTION_INFO*>(std::malloc(sizeof(VESK_SECTION_INFO)));
    if (*info == nullptr) return -1;
    (*info)->description = *description;
    (*info)->port = *description->port_info;
    platform.live.add("section info", *info);
    return fails ? -1 : 0;
}

int VLIBServiceConfSectionSet(const VESK_SECTION_REQUEST* request, const VESK_SECTION_INFO* info) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBServiceConfSectionSet", place(*request), words(*request))) return -1;
    if (!platform.live.contains("section info", info) || request->action != 1) return -1;
    Section section = declaration(*info);
    if (section.name != bounded(request->section)) platform.live.misuse("a section composed for another one");
    if (!isStorable(section)) return -1;
    const std::string path = declarationFile(*request);
    SectionedText file(platform.read(path).value_or(""));
    if (Section* found = file.find(section.name)) {
        *found = section;
    } else {
        file.sections.push_back(section);
    }
    platform.addFile(path, file.text());
    return 0;
}

int VLIBServiceConfSectionRemove(const VESK_SECTION_REQUEST* request) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VLIBServiceConfSectionRemove", place(*request), words(*request))) return -1;
    if (request->action != 3) return -1;
    const std::string path = declarationFile(*request);
    SectionedText file(platform.read(path).value_or(""));
    const Section* found = file.find(bounded(request->section));
    if (found == nullptr) return -1;
    file.sections.erase(file.sections.begin() + (found - file.sections.data()));
    platform.addFile(path, file.text());
    return 0;
}

int VLIBIsPortConflict(const char* service, const char* port, const char* protocol, int flags,
                       VESK_SERVICE_PORTS** ports) {
    FakePlatform& platform = FakePlatform::current();
    const bool fails = platform.calls.enter("VLIBIsPortConflict", service, port, protocol, flags);
    const std::string kind = protocol;
    if (!isPortText(port) || (kind != "tcp" && kind != "udp")) return -1;
    const bool taken = isDeclared(platform, service, port, kind) ||
                       std::find(platform.conflicts.begin(), platform.conflicts.end(),
                                 std::string(port) + "/" + kind) != platform.conflicts.end();
    if (ports != nullptr && (!fails || platform.failuresHandOutObjects)) {
        *ports = new VESK_SERVICE_PORTS{};
        platform.live.add("service ports", *ports);
    }
    if (fails) return -1;
    return taken ? 1 : platform.noConflict;
}

void VESKServiceConfPortsFree(VESK_SERVICE_PORTS* ports) {
    FakePlatform& platform = FakePlatform::current();
    platform.calls.note("VESKServiceConfPortsFree");
    if (platform.live.remove("service ports", ports)) delete ports;
}

int VESKFwRuleHup(void) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("VESKFwRuleHup")) return -1;
    ++platform.firewallReloads;
    return 0;
}

}  // extern "C"
