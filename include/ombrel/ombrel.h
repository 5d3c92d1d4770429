// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The whole exported interface of libombrel.
#pragma once

#include "ombrel/customizerule.h"
#include "ombrel/logarchiver.h"
#include "ombrel/postprocessor.h"
#include "ombrel/utils.h"
#include "ombrel/utils_updater.h"
