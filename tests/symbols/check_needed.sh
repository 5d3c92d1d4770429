#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: the Ombrel authors
#
# check_needed.sh LIBRARY SONAME NEEDED...: the library has this soname and names these libraries, and no
# other of the platform's. Exit code 0 when so, 1 when not, 2 when the library cannot be read.
set -eu
export LC_ALL=C

library=$1
soname=$2
shift 2
[ -r "$library" ] || { echo "check_needed: cannot read $library: build it first" >&2; exit 2; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
readelf -d "$library" >"$work/dynamic" || exit 2

found=$(sed -n 's/.*(SONAME).*\[\(.*\)\]$/\1/p' "$work/dynamic")
if [ "$found" != "$soname" ]; then
    echo "check_needed: $library has the soname '$found', not '$soname'" >&2
    exit 1
fi
sed -n 's/.*(NEEDED).*\[\(libvesk.*\)\]$/\1/p' "$work/dynamic" | sort >"$work/needed"
for name in "$@"; do echo "$name"; done | sort >"$work/wanted"
if ! diff -u -L wanted -L "$library" "$work/wanted" "$work/needed"; then
    echo "check_needed: $library names (+) or lacks (-) the libraries above" >&2
    exit 1
fi
