// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Plain SQL on one database file. A connection and its results belong to one thread at a time.
#pragma once

#include "platform/vesk_export.h"

extern "C" {

struct VESKDBCONN;
struct VESKDBRESULT;

/// Opens an existing database file; host, user and password are not used and may be null.
/// @return null when the file cannot be opened or is no database
VESK_EXPORT VESKDBCONN* VESKDBConnect(const char* host, const char* user, const char* password,
                                      const char* database);
/// Runs one statement. `result` may be null; otherwise `*result` receives the rows.
/// @return negative on failure; `*result`, where set, is released all the same
VESK_EXPORT int VESKDBExecute(VESKDBCONN* conn, const char* sql, VESKDBRESULT** result);
/// Steps to the next row and stores its index (from 0) in `*row`; negative when there is none.
VESK_EXPORT int VESKDBFetchRow(VESKDBRESULT* result, int* row);
/// The number of rows of the result.
VESK_EXPORT long long VESKDBNumRows(VESKDBRESULT* result);
/// The text of a column of a row, owned by the result; null for SQL NULL or no such row or column.
VESK_EXPORT const char* VESKDBFetchField(VESKDBRESULT* result, int row, const char* column);
/// Releases a result (not null).
VESK_EXPORT void VESKDBFreeResult(VESKDBRESULT* result);
/// Closes a connection (not null).
VESK_EXPORT void VESKDBClose(VESKDBCONN* conn);

}  // extern "C"
