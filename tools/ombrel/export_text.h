// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The text export of a database, with progress, and with an end when it is asked for.
#pragma once

#include <string>

#include "tools/ombrel/export_databases.h"

namespace ombrel {

/// Exports the rows of one database as text into the output.
ExportEnd exportText(const std::string& path, OutputFile& output, ExportProgress& progress);

}  // namespace ombrel
