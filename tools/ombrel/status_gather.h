// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Looks at everything that `ombrel status` shows. What a look costs does not depend on how much is stored.
#pragma once

#include "tools/ombrel/status_databases.h"
#include "tools/ombrel/status_receivers.h"
#include "tools/ombrel/status_report.h"

namespace ombrel {

class StatusWatch {
public:
    /// Each look builds on the one before: messages a second are known from the second one on.
    StatusReport look();

private:
    ReceiverWatch receivers_;
    DatabaseWatch databases_;
};

}  // namespace ombrel
