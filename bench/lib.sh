# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: the Ombrel authors
#
# What the measurements share. To be sourced.

now() { date +%s.%N; }
elapsed() { awk -v a="$1" -v b="$(now)" 'BEGIN { printf "%.3f", b - a }'; }
# median NUMBER...
median() {
  printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { m = int((NR + 1) / 2); print NR % 2 ? v[m] : (v[m] + v[m + 1]) / 2 }'
}
divide() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
