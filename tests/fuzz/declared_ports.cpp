// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Port declarations of any bytes: what is taken are ports, and what is not is told on one clean line.
#include "linux/common/declared_ports.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

using namespace ombrel;

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

bool hold(const PortRanges& ranges, int port) {
    return std::any_of(ranges.begin(), ranges.end(), [port](const PortRange& range) { return range.holds(port); });
}

void checkPorts(const PortRanges& ranges) {
    require(!ranges.empty() && ranges.size() <= kMostPortItems);
    const PortRanges fewer = merged(ranges);
    int last = -1;
    for (const PortRange& range : fewer) {
        require(range.first > last + 1 && range.last >= range.first && range.last <= 65535);
        last = range.last;
    }
    require(fewer.front().first >= 1);
    for (const PortRange& range : ranges) {
        for (const int port : {range.first - 1, range.first, range.last, range.last + 1})
            require(hold(ranges, port) == hold(fewer, port));
        require(parsePorts(textOf(range)) == PortRanges{range});
    }
}

void checkFault(const SettingsFault& fault) {
    const std::string words = describe(fault);
    require(fault.code != 0 && words.starts_with("/x.sc: ") && words.size() < 4000);
    require(std::none_of(words.begin(), words.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<Declaration> declarations;
    SettingsFault fault;
    if (parseDeclarations(text, "/x.sc", declarations, fault) != 0) checkFault(fault);
    for (const Declaration& one : declarations) {
        require(one.file == "x.sc" && (one.protocols.tcp || one.protocols.udp));
        checkPorts(one.ports);
    }
    if (const std::optional<OpenPorts> open = parseOpenPorts(text)) {
        for (const PortRanges* ranges : {&open->tcp, &open->udp}) {
            if (!ranges->empty()) checkPorts(*ranges);
        }
    }
    return 0;
}
