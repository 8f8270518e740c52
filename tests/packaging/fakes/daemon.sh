# Meant to be sourced by the fakes that play the daemon: what it writes, and what it does to the charge.
#   FAKE_END         the daemon of the job ends at once, with this status or signal, as launchd words it
#   FAKE_START_TIME  the seconds that it needs before it reports; else none
#   FAKE_UMASK       the umask of the system, for jobs that set none
# shellcheck shell=sh
. "$FAKES/call.sh"

data="$BRISKO_ROOT/Library/Application Support/Brisko"
logs=$BRISKO_ROOT/Library/Logs/Brisko

# log TEXT: a line of the daemon's log, on standard output too.
log() {
  echo "2026-03-01T10:00:00Z  $*" >>"$logs/daemon.log"
}

# text NAME ELSE: sets text to what a file of the Mac contains.
text() {
  text=$2
  [ ! -e "$FAKE_MAC/$1" ] || read -r text <"$FAKE_MAC/$1"
}

# flowing: sets text to the current, as the registry prints it, with the charge and the adapter as they are.
flowing() {
  text plugged Yes
  plugged=$text
  text charge free
  case $plugged$text in
    Yesheld) text=0 ;;
    Yesfree) text=1920 ;;
    *) text=18446744073709550716 ;;
  esac
  if surprises hold && [ "$text" = 0 ]; then text=1920; fi
  if surprises discharge && [ "$text" = 18446744073709550716 ]; then text=0; fi
}

# set_charge STATE: held, free or draining. Until the gauge publishes again it shows the current of before.
set_charge() {
  flowing
  echo "$text" >"$FAKE_MAC/current"
  number clock
  echo "$number" >"$FAKE_MAC/changed"
  echo "$1" >"$FAKE_MAC/charge"
}

# follow_settings: what brisko has set, at a charge of 78 %. Before that the charge is held.
follow_settings() {
  text limit 78
  limit=$text
  text discharge off
  if [ "$limit" -gt 78 ]; then
    set_charge free
  elif [ "$text" = on ]; then
    set_charge draining
  else
    set_charge held
  fi
}

start_daemon() {
  log 'brisko-daemon started (event-driven)'
  mkdir -p "$data/history"
  follow_settings
  [ -e "$data/stats.json" ] ||
    printf '%s' '{"atLimit":false,"protectedSeconds":0,"since":1772352000.0,"topUpSince":0.0}' >"$data/stats.json"
}

report_status() {
  number clock
  (
    grep -q '<key>Umask</key>' "$FAKE_MAC/job" || umask "${FAKE_UMASK:-022}"
    tr -d '\n' >"$data/status.json" <<END
{"cal":{"phase":"idle","runs":[]},"chargeMode":"CHTE","daemonPath":"/Library/Brisko/brisko-daemon",
"daemonVersion":"0.9.9","discharge":false,"dischargeFailed":false,"dischargeSupported":true,"enabled":true,
"gateVerified":$(if surprises verification; then echo false; else echo true; fi),"hot":false,"ledSupported":true,"pct":78,"plugged":true,"protectedSeconds":0,
"since":1772352000.0,"smcKeys":["CHIE","CHTE","ACLC","AC-W"],"startedAt":1772352000.5,"state":"hold","topUp":false,
"ts":$((now + number)).5,"upper":80}
END
  )
}

end_daemon() {
  log 'Signal 15: charging, adapter and LED restored, exiting.'
  surprises keeps || set_charge free
}

# start_job: launchd starts the daemon of the job.
start_job() {
  case ${FAKE_END:-} in
    '') ;;
    78*) return ;;
    2 | 2:*)
      echo '⛔️ no key to stop charging [CHTE: none]' >>"$logs/daemon.err.log"
      return
      ;;
    1 | 1:*)
      echo '⛔️ Could not open AppleSMC.' >>"$logs/daemon.err.log"
      return
      ;;
    Abort*)
      echo 'brisko-daemon: a number does not fit a 64-bit integer' >>"$logs/daemon.err.log"
      return
      ;;
    *) return ;;
  esac
  number clock
  start_daemon
  echo $((number + ${FAKE_START_TIME:-0})) >"$FAKE_MAC/due"
  start_when_due
}

# pass SECONDS: lets time pass.
pass() {
  number clock
  echo $((number + $1)) >"$FAKE_MAC/clock"
  start_when_due
  start_again
}

# launchd starts a daemon again that was ended with a signal.
start_again() {
  [ -e "$FAKE_MAC/again" ] && [ -e "$FAKE_MAC/job" ] || return 0
  number clock
  clock=$number
  number again
  [ "$clock" -ge "$number" ] || return 0
  rm "$FAKE_MAC/again"
  start_daemon
  report_status
}

start_when_due() {
  [ -e "$FAKE_MAC/due" ] && [ -e "$FAKE_MAC/job" ] || return 0
  number clock
  clock=$number
  number due
  [ "$clock" -ge "$number" ] || return 0
  rm "$FAKE_MAC/due"
  report_status
}
