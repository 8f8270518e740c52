#!/usr/bin/env bash
# Checks all shell scripts with shellcheck, including those for a Mac and the fakes of its tools; and those that run on a
# Mac, whose bash is version 3.2, for what that does not know. With the name of a folder it checks only the latter, of
# the scripts in that folder.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts() {
  grep --recursive --exclude-dir=volumes --files-with-matches --extended-regexp --max-count=1 '^(#!.*[ /](ba)?sh$|# shellcheck shell=)' "$@" |
    LC_ALL=C sort
}

# shellcheck disable=SC2016 # regular expressions
# Each line: what bash 3.2 lacks, as a regular expression, a tab, and the version that brought it.
newer='
\$\{[A-Za-z_]+[,^]	4.0: ${name,,} and ${name^^}
(declare|local|typeset) +-[a-zA-Z]*[An]	4.0 and 4.3: associative arrays and references
\b(mapfile|readarray|coproc)\b	4.0
\|&|&>>	4.0
;;&|;&	4.0
\{[0-9]+\.\.[0-9]+\.\.[0-9]+\}	4.0: {1..9..2}
\b(BASHPID|EPOCHSECONDS|EPOCHREALTIME|SRANDOM)\b	4.0 and 5.0
shopt +-s +(globstar|lastpipe|autocd|inherit_errexit)	4.0 and later
printf +(-v +[A-Za-z_]+\[|[^|]*%\()	4.1 and 4.2: arrays and %(…)T
exec +\{[a-z]+\}[<>]	4.1: {name}>file
\$\{[A-Za-z_]+\[-[0-9]	4.3: ${name[-1]}
\[\[? +-[vR] 	4.2: -v
wait +-n\b	4.3
\$\{[A-Za-z_]+@[A-Za-z]\}	4.4: ${name@Q}
read +(-[a-z]+ +)*-[iN]	4.0 and 4.1
(source|\.) +<\(	works since 4.0
\$'"'"'[^'"'"']*\\u	4.2: \u in $'"'"'…'"'"'
'

# Texts in quotes that are for another tool count too.
check_old_bash() {
  local found=0 pattern version script
  while IFS=$'\t' read -r pattern version; do
    [[ -n $pattern ]] || continue
    if grep --with-filename --line-number --extended-regexp -e "$pattern" "$@" | grep -v '^[^:]*:[0-9]*: *#'; then
      echo "The bash of macOS does not know this ($version)" >&2
      found=1
    fi
  done <<<"$newer"
  # As sh, the bash of macOS keeps to POSIX.
  for script; do bash --posix -n "$script" || found=1; done
  return "$found"
}

if [[ $# -gt 0 ]]; then
  mapfile -t for_mac < <(scripts "$1")
  check_old_bash "${for_mac[@]}"
  exit
fi
mapfile -t all < <(scripts scripts packaging tests/packaging .ci)
mapfile -t for_mac < <(scripts packaging)
shellcheck --external-sources --source-path=.:SCRIPTDIR "${all[@]}"
# They are written for sh, which on a Mac is bash.
shellcheck --shell=bash "${for_mac[@]}"
check_old_bash "${for_mac[@]}"
