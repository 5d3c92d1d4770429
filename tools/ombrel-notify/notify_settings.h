// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the service that writes notices takes from the settings file.
#pragma once

#include <cstdint>
#include <set>
#include <string>

namespace ombrel {

struct NotifySettings {
    std::set<std::uint16_t> udpPorts;  ///< that the receivers take datagrams on
    std::string destination;           ///< folder of the archives; empty when it is not known
    long long freeMib = 1024;          ///< bound of the free space there; 0: no notice
    /// What is missing or makes no sense, for people; the settings without it are as above. Empty when all is
    /// well.
    std::string problem;
};

NotifySettings readNotifySettings(const std::string& path);

}  // namespace ombrel
