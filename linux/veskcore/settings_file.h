// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A settings file on disk: read as a whole, changed as a whole.
#pragma once

#include <functional>
#include <string>

#include "linux/veskcore/settings_text.h"

namespace ombrel {

/// Reads a regular file of any size.
/// @return 0; -1, entered in the error record, when it is missing or cannot be read
int readSettings(const char* path, std::string& text);

/// Makes a new text of the old one, which is empty when the file does not exist.
using Edit = std::function<Edited(const std::string& text)>;

/// Changes the file, or makes it with mode 0644. Changes of one file by several processes happen one
/// after the other, none is lost; readers see the old text or the new one. A symbolic link stays and its
/// target is replaced. Waits at most 10 s for other writers.
/// @return 0; -1, entered in the error record, when `edit` refused or the file cannot be written: it is
///         then untouched
int changeSettings(const char* path, const Edit& edit);

}  // namespace ombrel
