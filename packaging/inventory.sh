#!/bin/sh
# Prints what an inventory wants to know of the daemon on this Mac, one "name: value" a line. It needs no rights.
# An inventory tool that shows one value gets it with an argument: "inventory.sh state".
set -eu

status="/Library/Application Support/Brisko/status.json"
if [ -n "${BRISKO_ROOT:-}" ]; then
  status=$BRISKO_ROOT$status
else
  PATH=/usr/bin:/bin:/usr/sbin:/sbin
  export PATH
fi

# value KEY: of the status; nothing where it is missing.
value() {
  # It may print its complaint where the value would be.
  if text=$(plutil -extract "$1" raw -o - "$status" 2>/dev/null); then printf '%s\n' "$text"; fi
}

service() {
  if [ ! -f "$status" ]; then
    echo "not installed"
  elif written=$(value ts) && [ $(($(date +%s) - 120)) -le "${written%%.*}" ] 2>/dev/null; then
    # Only "test" reads the value: in an arithmetic expression a shell would run commands that are in it.
    echo "running"
  else
    # The Mac may have slept until just now.
    echo "silent"
  fi
}

show() {
  case $1 in
    service) service ;;
    version) value daemonVersion ;;
    charge) value pct ;;
    limit) value upper ;;
    mode) value chargeMode ;;
    state) value state ;;
    verified) value gateVerified ;;
    *) return 1 ;;
  esac
}

if [ $# -gt 0 ]; then
  show "$1" || { echo "Unknown name \"$1\"." >&2; exit 2; }
  exit 0
fi
for name in service version charge limit mode state verified; do
  printf '%s: %s\n' "$name" "$(show "$name")"
done
