#!/bin/sh
# A compiler launcher: lets the compiler check a source, writes its dependencies, and leaves an empty object.
set -e
"$@" -fsyntax-only
while [ $# -gt 1 ]; do
  [ "$1" != -o ] || : >"$2"
  shift
done
