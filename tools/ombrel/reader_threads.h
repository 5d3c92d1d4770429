// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// How many databases are read side by side.
#pragma once

namespace ombrel {

/// One for each core that this process may use; at least 1.
unsigned readerThreads();

}  // namespace ombrel
