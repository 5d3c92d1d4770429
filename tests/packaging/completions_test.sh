#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: the Ombrel authors
#
# What bash, zsh and fish offer behind a command line, asked of the shells themselves. Those that are not there are
# passed over; bash always is.
#   completions_test.sh OMBREL FOLDER-OF-COMPLETIONS
set -euo pipefail
PATH=$(dirname "$1"):$PATH
export PATH
folder=$2
failures=0

expect() { # SHELL LINE EXPECTED ACTUAL
  [ "$3" = "$4" ] || { echo "$1: \"$2\" gives \"$4\", expected \"$3\"" >&2; failures=$((failures + 1)); }
}

# shellcheck disable=SC2016
of_bash() { # LINE: words between blanks, the last one is being typed
  bash --norc -c '
    . "$1/ombrel.bash"
    line=$2 COMP_WORDS=()
    line=${line//=/ = }
    read -ra COMP_WORDS <<<"$line"
    [[ $line != *" " ]] || COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    _ombrel
    printf "%s\n" "${COMPREPLY[@]}" | sort | xargs' - "$folder" "$1"
}
of_fish() {
  fish --no-config -c "source $folder/ombrel.fish; complete -C '$1'" | cut -f 1 | sed 's/^[^ ]*=\(.\)/\1/' | sort | xargs
}
# The functions that put candidates on the screen print them here.
# shellcheck disable=SC2016
of_zsh() {
  zsh -f -c '
    compdef() { }
    _describe() { local -a shown; shown=("${(@P)4}"); print -rl -- "${(@)shown%%:*}" }
    _files() { print -rl -- *(N) }
    line=$2
    words=("${(@s: :)line}") CURRENT=${#words}
    source "$1/_ombrel"' - "$folder" "$1" | sort | xargs
}

shells=bash
for shell in zsh fish; do ! command -v $shell >/dev/null || shells+=" $shell"; done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
touch a-file b-file
for shell in $shells; do
  ask=of_$shell
  expect $shell "ombrel se" "search settings" "$($ask "ombrel se")"
  expect $shell "ombrel --json sta" "stats status" "$($ask "ombrel --json sta")"
  expect $shell "ombrel compl" "" "$($ask "ombrel compl")"
  expect $shell "ombrel rule en" "enable" "$($ask "ombrel rule en")"
  expect $shell "ombrel search --fo" "--format" "$($ask "ombrel search --fo")"
  expect $shell "ombrel search --format c" "csv" "$($ask "ombrel search --format c")"
  expect $shell "ombrel search --color a" "always auto" "$($ask "ombrel search --color a")"
  expect $shell "ombrel settings get server_po" "server_port" "$($ask "ombrel settings get server_po")"
  expect $shell "ombrel settings set arch_com" "arch_compress=" "$($ask "ombrel settings set arch_com")"
  expect $shell "ombrel job start pkg-Ombrel-b" "pkg-Ombrel-bsd" "$($ask "ombrel job start pkg-Ombrel-b")"
  $ask "ombrel archive verify " | grep -q 'a-file b-file' || { echo "$shell: no files" >&2; failures=1; }
done
[ $failures = 0 ] || exit 1
echo "completions of $shells as expected"
