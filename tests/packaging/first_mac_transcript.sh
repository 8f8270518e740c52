#!/bin/sh
# Writes docs/first-mac-transcript.md: what the first run on a Mac prints, run on a folder that represents a Mac. With
# --check it changes nothing, shows what is out of date and fails if there is any.
set -eu
. "$(dirname -- "$0")/mac.sh"
document=$sources/docs/first-mac-transcript.md
FAKE_PATH=$quick_path

# The paths as they would be on a Mac.
shown() {
  sed -e "s|$mac/first-light.tar|brisko-first-light.tar|g" -e "s|$BRISKO_ROOT||g" -e "s|$sources/||g" \
    -e "s|$version|VERSION|g" -e 's/^/    /' -e 's/ *$//'
}

# run SHOWN WORD…
run() {
  echo "    \$ $1"
  shift
  status=0
  first_mac "$@" >"$work/output" 2>&1 || status=$?
  shown <"$work/output"
  echo "    exit status $status"
}

write_document() {
  cat <<'END'
# What the first run on a Mac prints

[first-mac.md](first-mac.md) explains the script. These runs were on a folder that represents a Mac, with fakes of its
tools, of the daemon and of time, not on a Mac. `tests/packaging/first_mac_transcript.sh` writes this page, and a test
compares it.

## Its options and steps

END
  new_mac "$work/help"
  run 'packaging/first-mac.sh --help' --help
  cat <<'END'

## With two surprises

Somebody answers every question, sees the light as it should be, and leaves the lid open. On this Mac the client of
macOS's limit answers only while the main thread's run loop runs, and the scheduled wake comes more than a minute late.

END
  new_mac "$work/surprises"
  answers g/o/b '' >"$work/answers"
  FAKE_SURPRISES='main-queue late-wake'
  export FAKE_SURPRISES
  run 'sudo packaging/first-mac.sh' <"$work/answers"
  unset FAKE_SURPRISES
  cat <<'END'

## Interrupted

With Ctrl-C during the discharge, after steps that were left out:

END
  new_mac "$work/interrupted"
  FAKE_SIGNAL=INT FAKE_SIGNAL_AT='brisko set discharge=off'
  export FAKE_SIGNAL FAKE_SIGNAL_AT
  run 'sudo packaging/first-mac.sh --yes --skip selftest --skip watches --skip hold' --yes --skip selftest --skip watches \
    --skip hold
}

write_document >"$work/document"
if [ "${1:-}" = --check ]; then
  diff "$document" "$work/document" || {
    echo "docs/first-mac-transcript.md is out of date: run tests/packaging/first_mac_transcript.sh." >&2
    exit 1
  }
else
  cat "$work/document" >"$document"
fi
