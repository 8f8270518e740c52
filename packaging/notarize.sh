#!/bin/sh
# notarize.sh PACKAGE CREDENTIAL…: has Apple check the package, and waits for the result. The credentials are options
# of notarytool, such as --keychain-profile NAME.
set -eu

package=$1
shift
# notarytool also succeeds when the package was rejected, so its answer decides.
answer=$(xcrun notarytool submit "$package" --wait --output-format json "$@") || {
  echo "The package could not be submitted." >&2
  exit 1
}
value() {
  printf '%s\n' "$answer" | tr ',{}' '[\n*]' | sed -n "s/^ *\"$1\" *: *\"\([^\"]*\)\".*/\1/p" | head -n 1
}
status=$(value status)
id=$(value id)
echo "Submission $id: ${status:-no status}"
[ "$status" = Accepted ] || {
  [ -z "$id" ] || xcrun notarytool log "$id" "$@" >&2 || true
  exit 1
}
