#!/bin/sh
# check-sdk.sh PROGRAM: whether all of a program was linked with the SDK of macOS 26 or later. macOS hides its own
# version, and more, from a program that was linked with an older one. Such a program may serve the Mac that built
# it, but is not signed and not handed out.
set -eu

oldest=26
program=$1

command -v otool >/dev/null || {
  echo "There is no otool here: this works on a Mac only" >&2
  exit 1
}

# One for each architecture. "n/a" where the linker noted none.
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
