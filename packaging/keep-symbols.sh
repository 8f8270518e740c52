#!/bin/sh
# keep-symbols.sh PROGRAM: puts the program's debug symbols beside it, as PROGRAM.dSYM, and takes them out of it. A
# crash report of a Mac can be read with them. Run again, it leaves both as they are.
set -eu

program=$1

uuid() {
  dwarfdump --uuid "$1" | sed -n 's/^UUID: \([0-9A-F-]*\) .*/\1/p'
}

own=$(uuid "$program")
[ -n "$own" ] || { echo "$program has no UUID" >&2; exit 1; }
[ ! -d "$program.dSYM" ] || [ "$(uuid "$program.dSYM")" != "$own" ] || exit 0
rm -rf "$program.dSYM"
dsymutil "$program" -o "$program.dSYM"
[ "$(uuid "$program.dSYM")" = "$own" ] || { echo "$program.dSYM does not belong to $program" >&2; exit 1; }
strip -S -x "$program"
