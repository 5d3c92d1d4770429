#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: the Ombrel authors
#
# check_symbols.sh LIBRARY LIST: compares the functions that a shared library exports with the list.
# Exit code 0 when they are the same, 1 when not (the difference is shown), 2 when they cannot be compared.
set -eu
export LC_ALL=C

library=$1
list=$2
[ -r "$library" ] || { echo "check_symbols: cannot read $library: build it first" >&2; exit 2; }
[ -r "$list" ] || { echo "check_symbols: cannot read $list" >&2; exit 2; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# What instrumented builds add themselves is no part of the interface.
nm -D --defined-only "$library" 2>/dev/null | awk 'NF >= 3 { print $3 }' |
    grep -v -E '^(__asan|__odr_asan|__ubsan|__tsan|__gcov|mangle_path$)' | c++filt | sort -u >"$work/exported" || true
grep -v '^#' "$list" | sort -u >"$work/listed" || true

if ! diff -u -L "$list" -L "$library" "$work/listed" "$work/exported"; then
    echo "check_symbols: $library exports (+) or lacks (-) the names above" >&2
    exit 1
fi
