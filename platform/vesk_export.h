// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Marks what a platform library shows to the programs that load it; everything else is hidden.
#pragma once

#define VESK_EXPORT __attribute__((visibility("default")))
