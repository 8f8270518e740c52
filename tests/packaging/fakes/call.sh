# To be sourced by the fakes of tools. Records each call in the journal of the Mac, with the paths that it would
# have on a real one, and ends the script under test just before the call whose number is given.
# shellcheck shell=sh

call() {
  printf '%s\n' "$*" | sed "s|$BRISKO_ROOT/|/|g; s|/tmp/brisko-[a-z]*\.[A-Za-z0-9]*|/tmp/SCRATCH|g" >>"$FAKE_MAC/journal"
  calls=$(wc -l <"$FAKE_MAC/journal")
  if [ "$calls" -eq "${FAKE_KILL_AT:-0}" ]; then
    "${1}_cut_off" "$@" 2>/dev/null
    kill -KILL "$SCRIPT_PID"
    exit 1
  fi
}
