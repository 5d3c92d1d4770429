// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The receipt ids of the last batch of each receiver. They stand in the log database, in the transaction
// of the batch's rows; whoever moves a working database away leaves them beside its name in the receipts
// file, so that a batch that comes again afterwards is still recognised. To know all of them, read both:
// a receiver's entry in the database is newer than its entry in the file.
#pragma once

#include <map>
#include <string>

#include "linux/common/sqlite_db.h"

namespace ombrel {

/// Receiver name to its ids, one behind the other; opaque to everyone but the log writer.
using Receipts = std::map<std::string, std::string>;

/// "<database path>-receipts"
std::string receiptsPathOf(const std::string& databasePath);

/// Reads table `receipts`; a database without that table has none. Returns an SQLite result code.
int loadReceipts(const Connection& connection, Receipts& receipts) noexcept;

/// Reads a receipts file; a missing file holds none. False, with errno set, when it cannot be read or is
/// not whole (EBADMSG).
bool loadReceiptsFile(const std::string& path, Receipts& receipts) noexcept;

/// Replaces the file atomically and has it on the disk when it returns. False with errno set; the old file
/// then stands as it was.
bool saveReceiptsFile(const std::string& path, const Receipts& receipts) noexcept;

}  // namespace ombrel
