// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <cstddef>

#include "platform/vesk_export.h"

extern "C" {

/// How a file is carried over; every byte without a value is zero.
struct VESK_COPY_OPTIONS {
    int unused1;
    int flag1;
    int flag2;
    int flag3;
    char unused2[60];
    int flag4;
};
static_assert(sizeof(VESK_COPY_OPTIONS) == 80);
static_assert(offsetof(VESK_COPY_OPTIONS, flag1) == 4);
static_assert(offsetof(VESK_COPY_OPTIONS, flag2) == 8);
static_assert(offsetof(VESK_COPY_OPTIONS, flag3) == 12);
static_assert(offsetof(VESK_COPY_OPTIONS, flag4) == 76);

/// Carries the file `from` over to `to`, which must not exist. On plain Linux the source is gone
/// afterwards, and a log database that a program is writing into is moved between two of its
/// transactions, so that no row is lost, doubled or split.
/// @return 0 on success, nonzero on failure; the source is then untouched and `to` does not exist
VESK_EXPORT int VESKFileCopy(const char* from, const char* to, const VESK_COPY_OPTIONS* options);

}  // extern "C"
