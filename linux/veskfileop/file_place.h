// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Giving a file another place: by name on the same file system, by its bytes on another one. Never over a
// file that stands there. Results are codes of the error record, 0 for success, with errno set on failure.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>

namespace ombrel {

/// Reads up to `size` bytes at `offset`; 0 at the end, negative with errno set on failure.
using ReadAt = std::function<ssize_t(char* buffer, size_t size, off_t offset)>;

/// fromErrno(EXDEV) when the two are on different file systems, fromErrno(EEXIST) when `to` exists.
int renameWithoutReplacing(const std::string& from, const std::string& to);

/// Copies the bytes into "<to>.part", gives that the owner, mode and times of `like`, has it on the disk and
/// names it `to`. On failure neither name is left.
int copyInto(const ReadAt& readAt, const struct stat& like, const std::string& to);

/// Moves a file that no program keeps open for writing.
int movePlainFile(const std::string& from, const std::string& to, const struct stat& info);

/// Takes the source away after its bytes stand at `to`; takes `to` away again when that fails.
int removeSource(const std::string& from, const std::string& to);

}  // namespace ombrel
