// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Declares ports: sections of the files in the declaration folder.
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "linux/common/declared_ports.h"
#include "linux/common/error_record.h"
#include "platform/veskcore.h"
#include "platform/veskserviceconf.h"

using namespace ombrel;

// Released with free(), so made by malloc() and without members that own anything: the section has a copy of
// its port, which may be gone by the time it is written.
struct VESK_PORT_INFO {
    VESK_PORT_REQUEST request;
};
struct VESK_SECTION_INFO {
    VESK_SECTION_DESCRIPTION description;
    VESK_PORT_INFO port;
};

namespace {

constexpr int kTcp = 1;
constexpr int kUdp = 2;
constexpr int kLastPort = 65535;
constexpr int kActionSet = 1;
constexpr int kActionRemove = 3;
constexpr const char* kLineFormat = "%s=\"%s\"\n";

struct HashFree {
    void operator()(VLIBSZHASH* hash) const noexcept { VLIBCSzHashFree(hash); }
};
using Hash = std::unique_ptr<VLIBSZHASH, HashFree>;

template <std::size_t N>
bool isTerminated(const char (&text)[N]) {
    return std::memchr(text, '\0', N) != nullptr;
}

/// A name that leads nowhere but to a declaration file of the folder.
bool isDeclarationFile(std::string_view name) {
    constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
    return name.size() > kDeclarationSuffix.size() && name.ends_with(kDeclarationSuffix) &&
           !name.starts_with('.') && name.find("..") == std::string_view::npos &&
           name.find_first_not_of(kPlain) == std::string_view::npos;
}

/// The path of the file that a request names; nothing, entered in the error record, when it is no such request.
std::optional<std::string> pathOf(const VESK_SECTION_REQUEST* request, int action) {
    const bool good = request != nullptr && request->word0 == 2 && request->word1 == 1 &&
                      request->action == action && request->word3 == 4 && request->word4 == 2 &&
                      isTerminated(request->file) && isTerminated(request->section) &&
                      isDeclarationFile(request->file) && request->section[0] != '\0';
    if (!good) {
        (void)fail(kErrorInvalidArgument);
        return std::nullopt;
    }
    return std::string(kDeclarationFolder) + "/" + request->file;
}

/// Readable for everyone, whatever the caller's umask.
int makeDeclarationFolder() {
    std::error_code failure;
    const bool made = std::filesystem::create_directories(kDeclarationFolder, failure);
    if (failure) return fail(fromErrno(failure.value()));
    if (made && ::chmod(kDeclarationFolder, 0755) != 0) return fail(fromErrno(errno));
    return 0;
}

Hash keysOf(const VESK_SECTION_INFO& info) {
    const VESK_PORT_REQUEST& port = info.port.request;
    Hash keys(VLIBCSzHashAlloc(4));
    const bool complete =
        keys != nullptr && VLIBCSzHashSetValue(keys.get(), "display_name", info.description.display_name) >= 0 &&
        VLIBCSzHashSetValue(keys.get(), "description", info.description.description) >= 0 &&
        VLIBCSzHashSetValue(keys.get(), "protocol", port.protocol == kUdp ? "udp" : "tcp") >= 0 &&
        VLIBCSzHashSetValue(keys.get(), "port", std::to_string(port.port).c_str()) >= 0;
    return complete ? std::move(keys) : Hash();
}

/// Replaces the section or adds it. Others may add or remove it between the two attempts; whoever loses that
/// race tries again.
int setSection(const char* path, const char* section, VLIBSZHASH* keys) {
    constexpr int kMostRaces = 16;
    for (int race = 0; race < kMostRaces; ++race) {
        if (VLIBCFileSetSection(path, section, section, keys, kLineFormat) >= 0) return 0;
        if (VLIBCErrGet() != kErrorNotFound) return -1;
        if (VLIBCFileAddSection(path, section, keys, kLineFormat) >= 0) return 0;
        if (VLIBCErrGet() != kErrorExists) return -1;
    }
    return -1;
}

template <typename Info>
Info* allocate() {
    auto* info = static_cast<Info*>(std::malloc(sizeof(Info)));
    if (info == nullptr) (void)fail(kErrorOutOfMemory);
    return info;
}

}  // namespace

extern "C" {

int VESKServiceComposePortInfo(const VESK_PORT_REQUEST* request, VESK_PORT_INFO** info) {
    const bool good = request != nullptr && info != nullptr && request->kind == 1 && request->zero == 0 &&
                      (request->protocol == kTcp || request->protocol == kUdp) && request->port >= 1 &&
                      request->port <= kLastPort && request->reserved1 == nullptr && request->reserved2 == nullptr;
    if (!good) return fail(kErrorInvalidArgument);
    auto* made = allocate<VESK_PORT_INFO>();
    if (made == nullptr) return -1;
    made->request = *request;
    *info = made;
    return 0;
}

int VESKServiceComposeSectionInfo(const VESK_SECTION_DESCRIPTION* description, VESK_SECTION_INFO** info) {
    const bool good = description != nullptr && info != nullptr && description->kind == 1 &&
                      description->reserved == nullptr && description->port_info != nullptr &&
                      isTerminated(description->name) && isTerminated(description->display_name) &&
                      isTerminated(description->description);
    if (!good) return fail(kErrorInvalidArgument);
    auto* made = allocate<VESK_SECTION_INFO>();
    if (made == nullptr) return -1;
    made->description = *description;
    made->description.port_info = nullptr;
    made->port = *description->port_info;
    *info = made;
    return 0;
}

int VLIBServiceConfSectionSet(const VESK_SECTION_REQUEST* request, const VESK_SECTION_INFO* info) {
    try {
        const std::optional<std::string> path = pathOf(request, kActionSet);
        if (!path) return -1;
        // Composed for another section: one of the two is a mistake.
        if (info == nullptr || std::strcmp(info->description.name, request->section) != 0)
            return fail(kErrorInvalidArgument);
        const Hash keys = keysOf(*info);
        if (keys == nullptr || makeDeclarationFolder() != 0) return -1;
        return setSection(path->c_str(), request->section, keys.get());
    } catch (const std::exception&) {
        return fail(kErrorOutOfMemory);
    }
}

// A file without sections stays, with its comments; readers find no port in it.
int VLIBServiceConfSectionRemove(const VESK_SECTION_REQUEST* request) {
    try {
        const std::optional<std::string> path = pathOf(request, kActionRemove);
        return path ? VLIBCFileRemoveSection(path->c_str(), request->section) : -1;
    } catch (const std::exception&) {
        return fail(kErrorOutOfMemory);
    }
}

}  // extern "C"
