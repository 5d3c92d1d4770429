// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// From the columns of a statement to row records. Every nanosecond here is paid for each row of an export.
#pragma once

#include "linux/vesksyslog/row_block.h"

namespace ombrel {

/// Steps until the block is full or the rows end. Never throws: being out of memory is a code of the block.
void fillBlock(const Statement& statement, RowColumns columns, RowBlock& block) noexcept;

}  // namespace ombrel
