// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The ports of the receivers of the settings, which no rule may take while such a receiver is restarted or has not
// come up after a boot.
#pragma once

#include <string>
#include <vector>

#include "receiver/launcher/ports.h"
#include "receiver/launcher/receiver_settings.h"

namespace ombrel {

struct ReservedPort {
    PortKey port;
    std::string receiver;  ///< "bsd" or "ietf"
};

/// Those of the receivers that were switched on last; none where the files do not say so.
std::vector<ReservedPort> reservedPorts(const SettingsPlaces& places);

}  // namespace ombrel
