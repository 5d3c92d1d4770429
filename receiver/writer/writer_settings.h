// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the log writer takes from the settings file.
#pragma once

#include <optional>
#include <string>

namespace ombrel {

struct WriterSettings {
    std::string archiveFolder;
    bool byDevice = false;
    int flushRows = 1;
    int flushSeconds = 0;
    friend bool operator==(const WriterSettings&, const WriterSettings&) = default;
};

/// Nothing when a key is missing or a value makes no sense; `error` then says which file and what to do.
std::optional<WriterSettings> readWriterSettings(const std::string& path, std::string& error);

}  // namespace ombrel
