// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/reserved_ports.h"

#include "linux/common/bounded_file.h"
#include "linux/veskcore/settings_line.h"

namespace ombrel {

namespace {

constexpr std::size_t kMostBytes = 1 << 20;

bool isSwitchedOn(const std::string& enabledJobs, const std::string& job) {
    for (LineReader reader(enabledJobs); reader.next();) {
        const auto pair = parseKeyValue(reader.text());
        if (pair && pair->key == job) return pair->value == "yes";
    }
    return false;
}

}  // namespace

std::vector<ReservedPort> reservedPorts(const SettingsPlaces& places) {
    std::vector<ReservedPort> reserved;
    std::string enabledJobs;
    if (readBounded(places.enabledJobs, kMostBytes, enabledJobs) != 0) return reserved;
    for (const char* const receiver : {"bsd", "ietf"}) {
        if (!isSwitchedOn(enabledJobs, std::string("pkg-Ombrel-") + receiver)) continue;
        std::string error;  // which that receiver says itself
        const auto config = receiverConfig(receiver, places, error);
        if (!config) continue;
        for (const Source& source : config->sources)
            reserved.push_back({portKeyOf(source), receiver});
    }
    return reserved;
}

}  // namespace ombrel
