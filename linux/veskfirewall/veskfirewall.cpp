// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The firewall library. It has its place and its soname, so that programs can be linked against it;
// it does not define the reload yet, so a program that needs that does not link instead of running unprotected.
#include "platform/veskfirewall.h"
