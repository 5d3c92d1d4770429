// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Declares the ports of the receivers, one section of the package's declaration file each. The firewall takes
// them up when it is told to reload, which is the caller's. The numbers are the lines that the messages name.
#include <syslog.h>

#include <string_view>

#include "ombrel/utils.h"
#include "src/failed_call.h"
#include "src/fixed_paths.h"
#include "src/platform_handles.h"
#include "src/settings_keys.h"

namespace {

using ombrel::Hash;
using ombrel::lend;
using ombrel::logFailedCall;
using ombrel::PortInfo;
using ombrel::SectionInfo;

constexpr const char* kUnit = "utils";
constexpr const char* kFileName = "vesk_syslog.sc";
constexpr int kActionSet = 1;
constexpr int kActionRemove = 3;
constexpr int kProtocolTcp = 1;
constexpr int kProtocolUdp = 2;

/// Cuts what does not fit; the field is zero before.
template <std::size_t kSize>
void store(char (&field)[kSize], std::string_view text) {
    (void)text.substr(0, text.find('\0')).copy(field, kSize - 1);
}

/// Without its action.
VESK_SECTION_REQUEST sectionRequest(const std::string& name) {
    VESK_SECTION_REQUEST request{};
    request.word0 = 2;
    request.word1 = 1;
    request.word3 = 4;
    request.word4 = 2;
    store(request.file, kFileName);
    store(request.section, name);
    return request;
}

int composePort(int port, SYSLOG_TRANSMISSION_MODE mode, PortInfo& info) {
    VESK_PORT_REQUEST request{};
    request.kind = 1;
    request.protocol = mode == SYSLOG_TRANSMISSION_UDP ? kProtocolUdp : kProtocolTcp;
    request.port = port;
    return lend(info, [&](VESK_PORT_INFO** out) { return VESKServiceComposePortInfo(&request, out); });
}

int composeSection(const std::string& name, const std::string& text, const PortInfo& port, SectionInfo& info) {
    VESK_SECTION_DESCRIPTION description{};
    store(description.name, name);
    store(description.display_name, "Ombrel");
    store(description.description, text);
    description.kind = 1;
    description.port_info = port.get();
    return lend(info, [&](VESK_SECTION_INFO** out) { return VESKServiceComposeSectionInfo(&description, out); });
}

}  // namespace

int VESKOmbrelPortRegister(const std::string& name, int port, SYSLOG_TRANSMISSION_MODE mode,
                           const std::string& description) {
    PortInfo portInfo;
    if (composePort(port, mode, portInfo) == -1) {
        return logFailedCall("%s:%d Fail to compose port info[0x%04X %s:%d]", kUnit, 414);
    }
    VESK_SECTION_REQUEST request = sectionRequest(name);
    SectionInfo sectionInfo;
    if (composeSection(name, description, portInfo, sectionInfo) == -1) {
        return logFailedCall("%s:%d Fail to compose section info[0x%04X %s:%d]", kUnit, 435);
    }
    request.action = kActionSet;
    if (VLIBServiceConfSectionSet(&request, sectionInfo.get()) < 0) {
        return logFailedCall("%s:%d Fail to create port section (%s)[0x%04X %s:%d]", kUnit, 443, kFileName);
    }
    return 0;
}

int VESKOmbrelPortUnregister(const std::string& name) {
    VESK_SECTION_REQUEST request = sectionRequest(name);
    request.action = kActionRemove;
    Hash keys(VLIBCSzHashAlloc(ombrel::kSettingsHashEntries));
    if (keys == nullptr) {
        syslog(LOG_ERR, "%s:%d Failed to alloc memory", kUnit, 474);
        return -1;
    }
    if (VLIBCFileExist(kPortFile) == 0) return 0;
    const int found =
        lend(keys, [&](VLIBSZHASH** hash) { return VLIBCFileGetSection(kPortFile, name.c_str(), hash); });
    if (found == 0) return 0;
    // A file that cannot be read may hold the section, so it is removed after an error as well.
    if (VLIBServiceConfSectionRemove(&request) < 0) {
        return logFailedCall("%s:%d Fail to remove port section! (%s), retVal=%d[0x%04X %s:%d]", kUnit, 480,
                             kFileName, found);
    }
    return 0;
}
