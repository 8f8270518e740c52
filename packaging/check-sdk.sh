#!/bin/sh
# check-sdk.sh PROGRAM: checks that every architecture of a program was linked with the SDK of macOS 26 or later. From
# a program that was linked with an older SDK macOS hides, among other things, its own version. Such a program may be
# used on the Mac that built it, but must not be signed or given to others.
set -eu

oldest=26
program=$1

command -v otool >/dev/null || {
  echo "There is no otool here: this works on a Mac only" >&2
  exit 1
}

# One for each architecture; "n/a" if the linker recorded none.
sdks=$(otool -l "$program" | awk '$1 == "cmd" { inside = $2 == "LC_BUILD_VERSION" } inside && $1 == "sdk" { print $2 }')
[ -n "$sdks" ] || {
  echo "$program does not say with which SDK it was built. Build it with Xcode $oldest or later." >&2
  exit 1
}
for sdk in $sdks; do
  major=${sdk%%.*}
  case $major in
    '' | *[!0-9]*) major=0 ;;
  esac
  [ "$major" -ge "$oldest" ] || {
    echo "$program was built with the SDK $sdk. Build it with Xcode $oldest or later." >&2
    exit 1
  }
done
