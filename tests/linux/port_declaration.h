// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The records that declare a port, filled as a package fills them.
#pragma once

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "platform/veskserviceconf.h"

namespace ombrel::test {

struct Free {
    void operator()(void* memory) const noexcept { std::free(memory); }
};
using PortInfo = std::unique_ptr<VESK_PORT_INFO, Free>;
using SectionInfo = std::unique_ptr<VESK_SECTION_INFO, Free>;

inline constexpr int kTcp = 1;
inline constexpr int kUdp = 2;
inline constexpr int kSet = 1;
inline constexpr int kRemove = 3;

/// Cuts what does not fit; the field is zero before.
template <std::size_t kSize>
void store(char (&field)[kSize], std::string_view text) {
    std::memcpy(field, text.data(), text.size() < kSize ? text.size() : kSize - 1);
}

inline VESK_PORT_REQUEST portRequest(int protocol, int port) {
    VESK_PORT_REQUEST request{};
    request.kind = 1;
    request.protocol = protocol;
    request.port = port;
    return request;
}

inline PortInfo composePort(const VESK_PORT_REQUEST& request) {
    VESK_PORT_INFO* info = nullptr;
    (void)VESKServiceComposePortInfo(&request, &info);  // null tells
    return PortInfo(info);
}

inline VESK_SECTION_DESCRIPTION sectionDescription(std::string_view section, std::string_view text,
                                                   VESK_PORT_INFO* port) {
    VESK_SECTION_DESCRIPTION result{};
    store(result.name, section);
    store(result.display_name, "Test");
    store(result.description, text);
    result.kind = 1;
    result.port_info = port;
    return result;
}

/// The port that it is composed of is gone when this returns.
inline SectionInfo composeSection(std::string_view section, int protocol, int port, std::string_view text) {
    const PortInfo portInfo = composePort(portRequest(protocol, port));
    const VESK_SECTION_DESCRIPTION wanted = sectionDescription(section, text, portInfo.get());
    VESK_SECTION_INFO* info = nullptr;
    (void)VESKServiceComposeSectionInfo(&wanted, &info);  // null tells
    return SectionInfo(info);
}

inline VESK_SECTION_REQUEST sectionRequest(std::string_view section, int action, std::string_view file) {
    VESK_SECTION_REQUEST result{};
    result.word0 = 2;
    result.word1 = 1;
    result.action = action;
    result.word3 = 4;
    result.word4 = 2;
    store(result.file, file);
    store(result.section, section);
    return result;
}

inline int declarePort(std::string_view section, int protocol, int port, std::string_view file,
                       std::string_view text = "a test") {
    const VESK_SECTION_REQUEST request = sectionRequest(section, kSet, file);
    return VLIBServiceConfSectionSet(&request, composeSection(section, protocol, port, text).get());
}

inline int withdrawPort(std::string_view section, std::string_view file) {
    const VESK_SECTION_REQUEST request = sectionRequest(section, kRemove, file);
    return VLIBServiceConfSectionRemove(&request);
}

}  // namespace ombrel::test
