// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Marks the exported interface of libombrel; everything else is hidden.
#pragma once

#define OMBREL_EXPORT __attribute__((visibility("default")))
