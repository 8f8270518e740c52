#!/bin/sh
# Removes brisko-daemon and what it made from this Mac, in whatever state it finds them, once the charge is given
# back. May be run again at any time, also after a run that was cut off. Plain sh: the Mac's own is an old one.
set -eu
umask 022

usage() {
  cat <<'END'
Usage: sudo uninstall-service.sh [--keep-data]

Stops brisko-daemon, sees to it that the battery charges and the light shines as macOS wants, and removes the
program, its job and its files.

  --keep-data   leave the settings, the records and the log
  --help        print this

The exit status is 0 when nothing is left (but the data that is kept), 1 when something went wrong, in which case
as much as possible is removed all the same, and 2 for arguments that make no sense.

BRISKO_ROOT names a folder that stands for the root of the volume, for trying this out: only what lies below it is
touched, and the tools are looked up in the caller's PATH.
END
}

label=com.brisko.daemon
root=${BRISKO_ROOT:-}
root=${root%/}
if [ -z "$root" ]; then
  PATH=/usr/bin:/bin:/usr/sbin:/sbin
  export PATH
  # The program must find this Mac and no other.
  unset BRISKO_PRETEND_MACOS BRISKO_PRETEND_NO_NATIVE BRISKO_VIRTUAL_MAC
fi

folder=$root/Library/Brisko
program=$folder/brisko-daemon
uninstaller=$folder/uninstall-service.sh
plist=$root/Library/LaunchDaemons/$label.plist
rotation=$root/etc/newsyslog.d/$label.conf
logs=$root/Library/Logs/Brisko
data="$root/Library/Application Support/Brisko"

say() {
  printf '%s\n' "$*"
}

fail() {
  printf '%s\n' "$*" >&2
  exit 1
}

# What went wrong is said at once and in the exit status; the rest continues.
complain() {
  printf '%s\n' "$*" >&2
  complaints=yes
}

refuse_arguments() {
  printf '%s\n' "$*" "Try --help." >&2
  exit 2
}

read_arguments() {
  keep_data=
  for argument; do
    case $argument in
      --keep-data) keep_data=yes ;;
      --help)
        usage
        exit 0
        ;;
      *) refuse_arguments "\"$argument\" is no argument of this script." ;;
    esac
  done
}

need_root() {
  [ "$(id -u)" = 0 ] || fail "This has to run as root (sudo)."
}

need_tools() {
  command -v launchctl >/dev/null || fail "There is no launchctl here: this is no Mac."
}

is_loaded() {
  launchctl print "system/$label" >/dev/null 2>&1
}

# A daemon that is told to end gives the charge back first. What counts is whether the job is gone: told to stop,
# the launch service may answer before it is. With the job still there nothing is removed, since a daemon without
# its files would continue holding the charge.
stop_job() {
  is_loaded || return 0
  removed=yes
  launchctl bootout "system/$label" || true
  patience=30
  while is_loaded; do
    [ "$patience" -gt 0 ] ||
      fail "The running service does not stop, so nothing was removed. Restart the Mac, then run this again."
    patience=$((patience - 1))
    sleep 1
  done
  say "Stopped the service $label."
}

# held_by_log: what the log says of the last process of the daemon. "no": it ended in good order, which gives the
# charge back. "yes": it was cut off. Nothing: the log does not know.
held_by_log() {
  for log in "$logs/daemon.log.1" "$logs/daemon.log"; do
    [ ! -f "$log" ] || cat "$log"
  done | LC_ALL=C awk '
    /^[^ ]+  brisko-daemon started / { held = "yes" }
    /^[^ ]+  Signal [0-9]+: / { held = "no" }
    END { print held }'
}

has_started() {
  grep -q 'brisko-daemon started' "$scratch/output"
}

# run_once: lets the program take the machine over and end in good order, which gives the charge back. It gets no
# settings and no limit, so that it holds nothing meanwhile. Right after the Mac has started it may take a minute
# to find its way to control the charge.
run_once() {
  # Emptied here and not by the program's own shell, or the banner of an earlier run might be taken for this one's.
  : >"$scratch/output"
  "$program" --limit 100 --config "$scratch/no-settings.json" >>"$scratch/output" 2>&1 &
  pid=$!
  patience=90
  until has_started || [ "$patience" -eq 0 ] || ! kill -0 "$pid" 2>/dev/null; do
    patience=$((patience - 1))
    sleep 1
  done
  kill -TERM "$pid" 2>/dev/null || true
  patience=20
  while kill -0 "$pid" 2>/dev/null; do
    if [ "$patience" -eq 0 ]; then kill -KILL "$pid"; fi
    # Stuck in the kernel, where no signal reaches it.
    if [ "$patience" -le -10 ]; then return 1; fi
    patience=$((patience - 1))
    sleep 1
  done
  ending=0
  wait "$pid" 2>/dev/null || ending=$?
  pid=
  has_started && [ "$ending" -eq 0 ]
}

# A number in a file of its own may end the program at every start. Settings are left out from the first; the
# records only when it must be, since they know the limit that macOS had before.
give_back() {
  held=$(held_by_log)
  if [ "$held" = no ]; then
    say "The daemon had given the charge back."
    return 0
  fi
  if [ ! -x "$program" ]; then
    [ "$held" != yes ] ||
      complain "The daemon was cut off, and its program is gone: the charge may still be held. Install the" \
        "service again, then remove it."
    return 0
  fi
  if run_once; then
    say "Ran the program once to give the charge back."
    return 0
  fi
  if [ -d "$data" ] && [ ! -e "$data.aside" ] && mv "$data" "$data.aside"; then
    moved_aside=yes
    if run_once; then
      say "Ran the program once, without its data, to give the charge back."
      say "If macOS's own charge limit is not what it was, set it in System Settings > Battery."
      return 0
    fi
  fi
  complain "The program does not run, so the charge may still be held. It said: $(tail -n 1 "$scratch/output")"
}

# The run without data has made data of its own, which nobody wants.
put_data_back() {
  [ -n "$moved_aside" ] || return 0
  if rm -rf "$data" && mv "$data.aside" "$data"; then
    moved_aside=
  else
    complain "The data lies in $data.aside now."
  fi
}

# Says what goes, and nothing about what was not there.
remove() {
  for path; do
    [ -e "$path" ] || [ -L "$path" ] || continue
    if rm -rf "$path"; then
      say "Removed $path"
      removed=yes
    else
      complain "Could not remove $path"
    fi
  done
}

remove_folder() {
  [ -d "$folder" ] || return 0
  if rmdir "$folder" 2>/dev/null; then
    say "Removed $folder"
    removed=yes
  else
    complain "$folder holds something that is not ours, so it stays."
  fi
}

# shellcheck disable=SC2317 # the trap calls it
clean_up() {
  status=$?
  trap - EXIT
  # It writes as it ends, so the data can only be put back after it.
  if [ -n "$pid" ] && kill -TERM "$pid" 2>/dev/null; then wait "$pid" || true; fi
  [ -z "$moved_aside" ] || put_data_back
  [ -z "$scratch" ] || rm -rf "$scratch"
  exit "$status"
}

main() {
  scratch='' pid='' moved_aside='' complaints='' removed=''
  read_arguments "$@"
  need_root
  need_tools
  trap clean_up EXIT
  trap 'exit 1' HUP INT TERM
  scratch=$(mktemp -d "$root/tmp/brisko-uninstall.XXXXXX")

  stop_job
  give_back
  put_data_back
  # The job goes first, so that a Mac that restarts now does not start it, and this script last, so that it can be
  # run again.
  remove "$plist" "$plist.new" "$rotation" "$rotation.new" "$program" "$program.new"
  if [ -n "$keep_data" ]; then
    for kept in "$data" "$data.aside" "$logs"; do
      [ ! -d "$kept" ] || say "Kept $kept"
    done
  else
    remove "$data" "$data.aside" "$logs"
  fi
  remove "$uninstaller" "$uninstaller.new"
  remove_folder
  [ -n "$removed" ] || say "There was nothing to remove."
  [ -z "$complaints" ] || exit 1
}

main "$@"
