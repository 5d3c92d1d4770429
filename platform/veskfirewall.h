// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include "platform/vesk_export.h"

extern "C" {

/// Makes the firewall take up the ports as they are declared now; negative on failure.
VESK_EXPORT int VESKFwRuleHup(void);

}  // extern "C"
