// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

namespace ombrel {

/// How many threads are worth having: one a core, eight at most.
unsigned workerCount();

}  // namespace ombrel
