// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A file that libzip packs, and the number of bytes that it has read of it: what libzip tells of its progress is
// made of the packed bytes, and of a log they are few.
#pragma once

#include <zip.h>

#include <functional>
#include <string>

namespace ombrel {

/// For zip_file_replace(). `onBytes` is called with the number of bytes of each read and must not throw. Null,
/// with `error` set, when the file cannot be opened.
zip_source_t* makeCountedSource(const std::string& path, std::function<void(long long)> onBytes,
                                std::string& error);

}  // namespace ombrel
