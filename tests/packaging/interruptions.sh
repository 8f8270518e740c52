#!/bin/sh
# interruptions.sh CASE…: interrupts an installation, a removal or the first run on a Mac in each of its steps, as a power
# failure does, continues in each possible way, and counts them. A step is a call that changes something outside of the
# temporary folder; one that copies or removes several things is interrupted in the middle. With no case it does all.
# shellcheck disable=SC2119 # install without options
set -eu
. "$(dirname -- "$0")/mac.sh"

saved=$work/saved

wrong() {
  echo "$case, interrupted in step $step${way:+, then $way}: $*" >&2
  [ ! -e "$work/output" ] || sed 's/^/  /' "$work/output" >&2
  exit 1
}

# is_one_of FILE CANDIDATE…
is_one_of() {
  file=$1
  shift
  for candidate; do
    [ ! -e "$candidate" ] || ! cmp -s "$file" "$candidate" || return 0
  done
  return 1
}

# What holds whenever the power fails: what is there is whole, a Mac that starts now finds the daemon of its job, and
# while the charge is held there is a program that gives it back.
check_interrupted() {
  library=$BRISKO_ROOT/Library
  [ ! -e "$library/Brisko/brisko-daemon" ] ||
    is_one_of "$library/Brisko/brisko-daemon" "$FAKES/brisko-daemon" "$here/volumes/first/Library/Brisko/brisko-daemon" ||
    wrong "the daemon is not whole"
  [ ! -e "$library/Brisko/uninstall-service.sh" ] ||
    is_one_of "$library/Brisko/uninstall-service.sh" "$sources/packaging/uninstall-service.sh" \
      "$here/volumes/first/Library/Brisko/uninstall-service.sh" || wrong "the uninstaller is not whole"
  plist=$library/LaunchDaemons/com.brisko.daemon.plist
  if [ -e "$plist" ]; then
    xmllint --noout "$plist" 2>/dev/null || wrong "the job is not whole"
    program=$(xmllint --xpath 'string(/plist/dict/array[1]/string[1])' "$plist")
    [ -x "$BRISKO_ROOT$program" ] || wrong "the job has no program"
  fi
  [ "$(charge)" = free ] || [ -x "$library/Brisko/brisko-daemon" ] ||
    [ -x "$BRISKO_ROOT/Applications/Brisko.app/Contents/MacOS/brisko-daemon" ] ||
    wrong "the charge is held, and no program can give it back"
}

check_installed() {
  listing | diff "$work/installed" - >"$work/output" || wrong "not everything is installed"
  cmp -s "$FAKE_MAC/job" "$BRISKO_ROOT/Library/LaunchDaemons/com.brisko.daemon.plist" || wrong "the job is not loaded"
  for record in config.json stats.json calibration.json history/2026-03-01.jsonl; do
    [ ! -e "$work/records/$record" ] ||
      cmp -s "$work/records/$record" "$BRISKO_ROOT/Library/Application Support/Brisko/$record" || wrong "$record has changed"
  done
}

check_removed() {
  listing | diff "$work/$1" - >"$work/output" || wrong "not exactly what was installed is removed"
  [ ! -e "$FAKE_MAC/job" ] || wrong "the job is still loaded"
  [ "$(charge)" = free ] || wrong "the charge is held"
}

# Each run that ends an interrupted one well.
finish() {
  way=$1
  FAKE_PATH=$quick_path
  case $way in
    'install again') install >"$work/output" 2>&1 || wrong "it failed" ;;
    'install the package again')
      # That the requirements are checked shows elsewhere.
      (
        export FAKE_HAS_NO_CHECK=1
        install_package >"$work/output" 2>&1
      ) || wrong "it failed"
      ;;
    'remove' | 'remove again') uninstall >"$work/output" 2>&1 || wrong "it failed" ;;
    'give back') first_mac --give-back >"$work/output" 2>&1 || wrong "it failed" ;;
    'remove again and keep the data') uninstall --keep-data >"$work/output" 2>&1 || wrong "it failed" ;;
  esac
  FAKE_PATH=$FAKES
  case $way in
    install*) check_installed ;;
    *keep*) check_removed kept ;;
    *) check_removed before ;;
  esac
}

# state FOLDER: of what outlives an interruption, in one number. The temporary folder is emptied by the system.
state() {
  tar -c --sort=name --mtime=@0 --exclude=volume/tmp --exclude=mac/journal --exclude=mac/steps -C "$1" volume mac | cksum
}

# interrupt CASE COMMAND WAY…: COMMAND is interrupted on the Mac as it is now. Where a step begins with what the step
# before began with, as after a mode was set that a file had already, what follows is the same.
interrupt() {
  case=$1 command=$2 step=0 way=''
  shift 2
  rm -rf "$saved"
  mkdir "$saved"
  rm -f "$FAKE_MAC/steps"
  FAKE_SAVE=$saved
  export FAKE_SAVE
  $command >"$work/output" 2>&1 || wrong "it fails without an interruption"
  unset FAKE_SAVE
  read -r steps <"$FAKE_MAC/steps"
  ends=0 states=0 last=
  while [ "$step" -lt "$steps" ]; do
    step=$((step + 1))
    ends=$((ends + $#))
    state=$(state "$saved/$step")
    [ "$state" != "$last" ] || continue
    last=$state states=$((states + 1))
    for way; do
      rm -rf "$mac"
      cp -a "$saved/$step" "$mac"
      rm -f "$work/output"
      way_on=$way way=
      check_interrupted
      finish "$way_on"
    done
  done
  [ "$steps" -gt 10 ] || wrong "only $steps steps were counted"
  printf '%s: %s steps, %s further runs, all end well (%s different states)\n' "$case" "$steps" "$ends" "$states"
}

# prepare LAYOUT…: a Mac with these volumes on it. Notes what is there before, and what an installation that nobody
# interrupts leaves.
prepare() {
  rm -rf "$work/mac" "$work/records"
  mkdir "$work/records"
  new_mac "$work/mac"
  listing >"$work/before"
  if [ $# -gt 0 ]; then
    new_mac "$work/mac" "$@"
    cp -R "$BRISKO_ROOT/Library/Application Support/Brisko/." "$work/records"
    # What is not ours stays.
    [ ! -d "$BRISKO_ROOT/Applications/Brisko.app" ] ||
      (listing | grep '^Applications/' && cat "$work/before") | LC_ALL=C sort -u >"$work/before.new"
    [ ! -e "$work/before.new" ] || mv "$work/before.new" "$work/before"
  fi
  cp -a "$work/mac" "$work/prepared"
  "$installation" >"$work/output" 2>&1 || { cat "$work/output"; exit 1; }
  listing >"$work/installed"
  rm -rf "$work/mac"
  mv "$work/prepared" "$work/mac"
}

# try_everything: the first run on a Mac, with its file outside of the Mac.
try_everything() {
  rm -f "$work/mac/first-light.tar"
  first_mac --yes
}

# signal_everywhere: ends the first run with a signal before each of its steps: alone, and from a terminal. It gives
# everything back itself.
signal_everywhere() {
  case='the first run on a Mac' way='' step=0 status=1
  FAKE_PATH=$quick_path
  while [ "$status" -ne 0 ]; do
    step=$((step + 1))
    for FAKE_SIGNAL in TERM INT; do
      new_mac "$work/mac"
      listing >"$work/before"
      status=0
      (
        FAKE_SIGNAL_AT=$step
        export FAKE_SIGNAL FAKE_SIGNAL_AT
        try_everything
      ) >"$work/output" 2>&1 || status=$?
      [ "$status" -le 1 ] || wrong "$FAKE_SIGNAL ends it with status $status"
      check_removed before
      [ ! -s "$FAKE_MAC/schedule" ] || wrong "a wake is scheduled after $FAKE_SIGNAL"
      [ ! -e "$FAKE_MAC/listening" ] || wrong "$FAKE_SIGNAL leaves a process"
      rm -rf "$work/mac"
    done
  done
  FAKE_PATH=$FAKES
  [ "$step" -gt 20 ] || wrong "only $step steps were counted"
  printf '%s: ended with signals before %s steps, gives everything back each time\n' "$case" "$((step - 1))"
}

# prepare_removal: a Mac with everything installed.
prepare_removal() {
  installation=install
  prepare
  install >"$work/output" 2>&1
  data="$BRISKO_ROOT/Library/Application Support/Brisko"
  mkdir -p "$data/history"
  printf '{"t":1}\n' >"$data/history/2026-02-28.jsonl"
  (
    listing | grep -E '^Library/(Application Support|Logs)/Brisko' | grep -v status.json
    cat "$work/before"
  ) | LC_ALL=C sort -u >"$work/kept"
}

run_case() {
  case $1 in
    install)
      installation=install
      prepare
      interrupt "installation" install 'install again' remove
      ;;
    upgrade-*)
      installation=install
      # shellcheck disable=SC2046 # the layouts are words
      prepare $(echo "${1#upgrade-}" | tr + ' ')
      interrupt "upgrade of the layout \"${1#upgrade-}\"" install 'install again'
      ;;
    package)
      make_package
      installation=install_package
      prepare
      interrupt "installation of the package" install_package 'install the package again'
      ;;
    package-upgrade)
      make_package
      installation=install_package
      prepare first app
      interrupt "upgrade by the package" install_package 'install the package again'
      ;;
    remove)
      prepare_removal
      interrupt "removal" uninstall 'remove again'
      ;;
    remove-crashing)
      prepare_removal
      # Neither the settings nor the records let the daemon start, and its log shows no orderly end.
      for file in config stats; do
        printf '{"protectedSeconds":1e300}' >"$BRISKO_ROOT/Library/Application Support/Brisko/$file.json"
      done
      : >"$FAKE_MAC/crashing"
      interrupt "removal after a crash" uninstall 'remove again'
      ;;
    first-mac)
      installation=install
      prepare
      interrupt "the first run on a Mac" try_everything 'give back'
      ;;
    first-mac-signals) signal_everywhere ;;
    *)
      echo "Unknown case \"$1\"." >&2
      exit 2
      ;;
  esac
}

[ $# -gt 0 ] || set -- install upgrade-first+edited-job upgrade-bundled package package-upgrade remove remove-crashing first-mac \
  first-mac-signals
for name; do run_case "$name"; done
