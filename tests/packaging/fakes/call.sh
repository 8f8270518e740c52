# Meant to be sourced by the fakes of tools. They share the folder FAKE_MAC: what a Mac knows that is in no file of
# its volume.
#   journal    each call, with its paths as they would be on a real Mac
#   steps      how many of the calls changed something outside of the temporary folder
#   clock      seconds that have passed; "sleep" lets them pass
#   charge     "held" or "free", as the daemon left it
#   job        the job that launchd has loaded
# FAKE_SURPRISES lists, for the first run on a Mac, in which ways this Mac is not as expected.
# For the script under test: SCRIPT_PID is its process and the group of its process and all of its children.
#   FAKE_STOP_AT   the number of the step before which the script and its children are killed; a step that copies or
#                  removes several things is killed in the middle
#   FAKE_SIGNAL_AT the step, by its number or as a whole, before which the script gets the signal FAKE_SIGNAL: TERM
#                  alone, others together with its children, as INT from a terminal
#   FAKE_SAVE      a folder for a copy of the volume and of FAKE_MAC as they are when each step is killed there
# shellcheck shell=sh

PATH=/usr/bin:/bin
scratch_tool=${0##*/}
# The second that the tests begin with, for the fakes of clocks.
# shellcheck disable=SC2034
now=1772352000

# number NAME: the number in a file of the Mac, 0 while there is none.
number() {
  number=0
  [ ! -e "$FAKE_MAC/$1" ] || read -r number <"$FAKE_MAC/$1"
}

# call WORD…: notes the call. Without a process of its own, since a script makes a hundred calls.
call() {
  line=$*
  while :; do
    case $line in
      *"$BRISKO_ROOT"/*) line=${line%%"$BRISKO_ROOT"/*}/${line#*"$BRISKO_ROOT"/} ;;
      *) break ;;
    esac
  done
  while :; do
    case $line in
      */tmp/brisko-*.??????*)
        rest=${line#*/tmp/brisko-*.}
        line=${line%%/tmp/brisko-*}/tmp/SCRATCH${rest#??????}
        ;;
      *) break ;;
    esac
  done
  printf '%s\n' "$line" >>"$FAKE_MAC/journal"
}

# step WORD…: notes a call that changes something, and has the script end here if a test wants it to. The function
# cut_off, where a fake has one, does the first half of the work.
step() {
  call "$@"
  number steps
  step=$((number + 1))
  echo "$step" >"$FAKE_MAC/steps"
  if [ -n "${FAKE_SAVE:-}" ]; then
    mkdir "$FAKE_SAVE/$step"
    cp -a "$BRISKO_ROOT" "$FAKE_SAVE/$step/volume"
    cp -a "$FAKE_MAC" "$FAKE_SAVE/$step/mac"
    # shellcheck disable=SC2034 # for cut_off
    halfway=$FAKE_SAVE/$step/volume
    [ -z "${has_cut_off:-}" ] || cut_off "$@"
  elif [ "$step" -eq "${FAKE_STOP_AT:-0}" ]; then
    # shellcheck disable=SC2034
    halfway=$BRISKO_ROOT
    [ -z "${has_cut_off:-}" ] || cut_off "$@"
    kill -KILL "-$SCRIPT_PID"
  elif [ "${FAKE_SIGNAL_AT:-}" = "$step" ] || [ "${FAKE_SIGNAL_AT:-}" = "$*" ]; then
    if [ "$FAKE_SIGNAL" = TERM ]; then kill -TERM "$SCRIPT_PID"; else kill "-$FAKE_SIGNAL" "-$SCRIPT_PID"; fi
  fi
}

# surprises WORD: whether this Mac is unexpected in this way.
surprises() {
  case " ${FAKE_SURPRISES:-} " in
    *" $1 "*) return 0 ;;
    *) return 1 ;;
  esac
}

# refuse_option OPTION
refuse_option() {
  echo "$scratch_tool: illegal option -- $1" >&2
  exit 64
}
