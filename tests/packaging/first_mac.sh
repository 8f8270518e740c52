#!/bin/sh
# The first run on a Mac, on a folder that represents one: with everything as expected, with every surprise, interrupted,
# and refused. tests/packaging/interruptions.sh interrupts it in every step.
# shellcheck disable=SC2030,SC2031,SC2046 # what is different about a Mac is local to a case; steps are words
set -eu
. "$(dirname -- "$0")/mac.sh"

wrong() {
  echo "$case: $*" >&2
  [ ! -e "$work/output" ] || sed 's/^/  /' "$work/output" >&2
  exit 1
}

# prepare CASE: a Mac of its own.
prepare() {
  case=$1
  rm -f "$work/output"
  new_mac "$work/$(echo "$case" | tr ' ' -)"
  listing >"$work/before"
}

# given_back: that the Mac is as it was before.
given_back() {
  listing | diff "$work/before" - >"$work/output" || wrong "something is left or missing"
  [ ! -e "$FAKE_MAC/job" ] || wrong "the job is loaded"
  [ "$(charge)" = free ] || wrong "the charge is $(charge)"
  [ ! -s "$FAKE_MAC/schedule" ] || wrong "a wake is scheduled"
}

# ends STATUS WORD…: runs it with the answers in $work/answers.
ends() {
  expected=$1 status=0
  shift
  first_mac "$@" >"$work/output" 2>&1 <"$work/answers" || status=$?
  [ "$status" -eq "$expected" ] || wrong "status $status instead of $expected"
}

# points RESULT: the points with this result, from the file for the developers.
points() {
  tar -xOf "$mac/first-light.tar" brisko-report/first-light.json |
    jq --raw-output --arg result "$1" '.points[] | select(.result == $result) | .point'
}

# has_points RESULT, with the points on standard input.
has_points() {
  LC_ALL=C sort >"$work/expected"
  points "$1" | LC_ALL=C sort | diff "$work/expected" - >"$work/difference" || {
    cat "$work/difference" >>"$work/output"
    wrong "other points are $1"
  }
}

# refused TEXT
refused() {
  grep -Fq "$1" "$work/output" || wrong "another reason than \"$1\""
  [ ! -e "$mac/first-light.tar" ] || wrong "a file was written"
  cp "$work/output" "$work/reason"
  given_back
}

# only STEP…: the options that leave out all other steps.
only() {
  for step in system selftest probe controller limit-client watches install clients hold discharge light footprint signal \
    sleep plug-asleep; do
    case " $* " in
      *" $step "*) ;;
      *) printf ' --skip %s' "$step" ;;
    esac
  done
}

everything='adapter after the cut
adapter flag while it is cut off
charge and adapter
client of macOS'\''s limit
discharge
footprint
foreign client
gate
hold
hold after plugging in asleep
light
messages of sleep and wake
own client
plugging in asleep
removal
scheduled wake
self-test
service
SIGTERM under load
size of the controller'\''s reply
start by launchd
verification by the daemon
version of macOS
wake-ups
watches on removed files'

prepare 'everything as expected'
answers g/o/b y >"$work/answers"
ends 0
printf '%s\n' "$everything" | has_points settled
points 'not settled' surprising >"$work/points"
[ ! -s "$work/points" ] || wrong "not everything is settled"
[ "$(tar -tf "$mac/first-light.tar" | tr '\n' ' ')" = \
  'brisko-report/manifest.json brisko-report/first-light.json brisko-report/first-light.txt ' ] ||
  wrong "the file has other members"
[ "$(head -c 265 "$mac/first-light.tar" | tail -c 8 | od -An -c | tr -d ' ')" = 'ustar\000' ] || wrong "the file is not in ustar"
grep -q '^25 settled, 0 not settled, 0 surprising$' "$work/output" || wrong "the table has other sums"
grep -Eq 'scheduled wake +[0-9]+ s  DarkWake for 45 s, 1 s after its time' "$work/output" || wrong "the wake is wrong"
given_back

FAKE_PATH=$quick_path
prepare 'every surprise'
answers o/o/b '' >"$work/answers"
(
  FAKE_SURPRISES='version selftest reply main-queue watches foreign client hold verification discharge footprint signal'
  export FAKE_SURPRISES="$FAKE_SURPRISES late-wake deaf opens"
  export FAKE_MACOS=27.0
  ends 0
)
printf '%s\n' "$everything" | grep -vx -e 'adapter .*' -e 'charge and adapter' -e removal -e service -e 'start by launchd' \
  -e 'plugging in asleep' >"$work/surprises"
has_points surprising <"$work/surprises"
given_back

# With the package, which has no brisko-first-light, and a removal that leaves something.
make_package
prepare 'the package'
(
  export FAKE_SURPRISES='flag keeps' FAKE_KEEPS_RECEIPT=1
  ends 1 --package "$package" --yes $(only system selftest probe install clients discharge)
)
printf '%s\n' 'charge and adapter' removal | has_points surprising
points 'not settled' | grep -qx 'version of macOS' || wrong "the version is settled without a program that shows it"
grep -q 'settled *adapter flag while it is cut off .* kept; macOS shows AC Power' "$work/output" || wrong "the flag is wrong"
grep -q 'run: sudo .* --give-back' "$work/output" || wrong "it does not say how to give back"
# The Mac has been restarted.
echo free >"$FAKE_MAC/charge"
ends 0 --give-back
given_back
ends 0 --give-back
grep -q '^There is nothing to give back' "$work/output" || wrong "there is something to give back"

prepare 'no scheduled wake'
(
  export FAKE_SURPRISES='unscheduled keeps'
  ends 1 --yes $(only probe install sleep)
)
printf '%s\n' 'charge and adapter' 'scheduled wake' | has_points surprising
echo free >"$FAKE_MAC/charge"
ends 0 --give-back
given_back

prepare 'no sleep'
(
  # A limit of macOS that was set before stays.
  export FAKE_SURPRISES='no-sleep own-limit'
  ends 0 --yes $(only probe install sleep)
)
printf '%s\n' 'messages of sleep and wake' 'scheduled wake' | has_points surprising
given_back

prepare 'a failed installation'
(
  export FAKE_REFUSALS=9
  ends 0 --yes $(only probe install hold)
)
echo service | has_points surprising
given_back

# By a signal, in the shell of a Mac. tests/packaging/interruptions.sh interrupts it everywhere.
prepare 'an interruption'
(
  export FAKE_SURPRISES=no-report FAKE_SIGNAL=TERM FAKE_SIGNAL_AT='pmset sleepnow' FAKE_SHELL='/bin/bash --posix'
  ends 1 --yes $(only probe install discharge sleep)
)
points settled | grep -qx 'charge and adapter' || wrong "the charge was not checked"
[ "$(tar -tf "$mac/first-light.tar" | tr '\n' ' ')" = 'brisko-report/first-light.json brisko-report/first-light.txt ' ] ||
  wrong "the file has other members"
[ ! -e "$FAKE_MAC/listening" ] || wrong "a process is left"
given_back

prepare refusals
(
  export FAKE_USER=501
  ends 1
)
refused 'This has to run as root (sudo).'
(
  export FAKE_ARM64=no
  ends 1
)
refused 'This Mac has no Apple silicon.'
(
  export FAKE_MACOS=12.7.6
  ends 1
)
refused 'needs macOS 13 or later.'
ends 2 --skip removal
refused 'The removal cannot be skipped.'
ends 2 --skip elsewhere
refused 'There is no step "elsewhere".'
mkdir "$BRISKO_ROOT/Library/Logs/Brisko"
ends 1
rmdir "$BRISKO_ROOT/Library/Logs/Brisko"
refused 'There is a brisko-daemon on this Mac already'
