#!/bin/sh
# check-team.sh DAEMON BRISKO LAB [PACKAGE]: whether one team has signed them all, the programs under their own names. The
# daemon takes commands only from its own team. Prints the team.
set -eu

fail() {
  printf '%s\n' "$*" >&2
  exit 1
}

# team_of PROGRAM IDENTIFIER
team_of() {
  codesign --verify --strict "$1" || fail "The signature of $1 is missing or broken."
  signature=$(codesign --display --verbose=2 "$1" 2>&1)
  printf '%s\n' "$signature" | grep -Fqx "Identifier=$2" || fail "$1 is not signed as $2."
  team=$(printf '%s\n' "$signature" | sed -n 's/^TeamIdentifier=//p')
  case $team in
    '' | 'not set') fail "No team has signed $1." ;;
  esac
  printf '%s\n' "$team"
}

daemon_team=$(team_of "$1" com.brisko.daemon)
client_team=$(team_of "$2" com.brisko.Brisko)
[ "$client_team" = "$daemon_team" ] || fail "$1 is signed by the team $daemon_team, and $2 by $client_team."
lab_team=$(team_of "$3" com.brisko.lab)
[ "$lab_team" = "$daemon_team" ] || fail "$1 is signed by the team $daemon_team, and $3 by $lab_team."
if [ $# -gt 3 ]; then
  # The first certificate is the signer's: "1. Developer ID Installer: Some One (TEAM123456)".
  package_team=$(pkgutil --check-signature "$4" | sed -n 's/^ *1\. .*(\([A-Z0-9]*\))$/\1/p') || package_team=
  [ "$package_team" = "$daemon_team" ] ||
    fail "$4 is signed by ${package_team:-no team}, and the programs in it by the team $daemon_team."
fi
printf '%s\n' "$daemon_team"
