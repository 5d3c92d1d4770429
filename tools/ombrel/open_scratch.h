// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The scratch file of a text export that runs in another thread of this process: how far it is, and an end to it.
#pragma once

#include <optional>
#include <string>

namespace ombrel {

struct OpenScratch {
    std::string path;
    unsigned long long bytes = 0;
};

/// The file that is open now; nothing when there is none.
std::optional<OpenScratch> openScratch();

/// Has every write of this process to a file fail, so that the export ends, or lets them go on again.
void failAllWrites(bool wanted);
void removeScratch(const std::string& path);

}  // namespace ombrel
