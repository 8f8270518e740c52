# Meant to be sourced by what plays the daemon, which sets its version: reports that, answers the probe, or runs as the
# daemon until it is told to end.
#   FAKE_PROBE      the answer to the probe; else a Mac that is supported
#   FAKE_BROKEN     ends at once with this status, whatever there is to read
#   FAKE_DEAF       starts, and does not end when told to
#   FAKE_INTERRUPT  has the script under test interrupted as it starts
# A file stats.json with the number 1e300 ends every start, and so does such a config.json unless another settings
# file is named.
# shellcheck shell=sh
. "$FAKES/daemon.sh"
call brisko-daemon "$@"

say() {
  echo "2026-03-01T10:00:00Z  $*"
}

end() {
  [ -z "${FAKE_DEAF:-}" ] || return
  say 'Signal 15: charging, adapter and LED restored, exiting.'
  end_daemon
  echo "charge given back, the job $([ -e "$BRISKO_ROOT/Library/LaunchDaemons/com.brisko.daemon.plist" ] && echo there || echo gone)" >>"$FAKE_MAC/journal"
  exit 0
}

case $* in
  --version)
    # shellcheck disable=SC2154 # the program sets it
    echo "$version"
    exit 0
    ;;
  '--probe --json')
    printf '%s' "${FAKE_PROBE:-{\"discharge\":\"CHIE\",\"led\":true,\"mode\":\"CHTE\",\"supported\":true\}}"
    exit 0
    ;;
  --selftest)
    ! surprises selftest || { printf '✗ 1 erreur(s) sur 212 vérifications :\n  - le journal existe après bascule\n'; exit 1; }
    echo '✓ 212 vérifications, aucune erreur.'
    exit 0
    ;;
esac
[ -z "${FAKE_BROKEN:-}" ] || { echo 'brisko-daemon: broken' >&2; exit "$FAKE_BROKEN"; }
settings=$data/config.json
while [ $# -gt 1 ]; do
  [ "$1" != --config ] || settings=$2
  shift
done
if grep -qs 1e300 "$settings" "$data/stats.json"; then
  echo 'brisko-daemon: a number does not fit a 64-bit integer' >&2
  exit 134
fi
trap end TERM
start_daemon
# The user interrupts the script just before the program is up.
if [ -n "${FAKE_INTERRUPT:-}" ]; then kill -TERM "$SCRIPT_PID"; fi
say 'brisko-daemon started (event-driven)'
while :; do
  sleep 0.002
done
