# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: the Ombrel authors
#
# Completion of `ombrel` in bash. What may follow is asked of the program itself.

_ombrel() {
  local word words=() glue= files= candidate prefix name
  COMPREPLY=()
  # "=" is a word by itself for bash: KEY=VALUE comes as three.
  for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
    if [[ ${#words[@]} -gt 0 && ($word == "=" || -n $glue) ]]; then
      words[-1]+=$word
    else
      words+=("$word")
    fi
    [[ $word == "=" ]] && glue=1 || glue=
  done
  word=${words[-1]-}
  prefix=${word%"${word##*=}"} # what stands on the line already, as words of their own
  while IFS= read -r candidate; do
    candidate=${candidate%%$'\t'*}
    if [[ -z $candidate ]]; then
      files=1
    else
      COMPREPLY+=("${candidate#"$prefix"}")
      [[ $candidate != *= ]] || compopt -o nospace 2>/dev/null
    fi
  done < <("${COMP_WORDS[0]}" complete -- "${words[@]}" 2>/dev/null)
  if [[ -n $files ]]; then
    compopt -o filenames 2>/dev/null
    while IFS= read -r name; do COMPREPLY+=("$name"); done < <(compgen -f -- "${word##*=}")
  fi
}
complete -F _ombrel ombrel
