// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/machine_places.h"

#include "linux/vesksyslog/event_log.h"

namespace ombrel {

std::string eventFile() {
    return kEventFile;
}

}  // namespace ombrel
