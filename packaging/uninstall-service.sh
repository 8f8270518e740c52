#!/bin/sh
# Gives the charge back, then removes brisko-daemon and its files from this Mac, whatever their state. It can be run
# again at any time, also after an interrupted run. Written in POSIX sh, because the shells that macOS provides are old.
set -eu
umask 022

usage() {
  cat <<'END'
Usage: sudo uninstall-service.sh [--keep-data]

Stops brisko-daemon, makes sure that macOS controls the charge and the light again, and removes the daemon, brisko,
the job and all files.

  --keep-data   keep the settings, the records and the log
  --help        print this

The exit status is 0 if everything is removed (except kept data), 1 after an error (as much as possible is removed
anyway), and 2 for invalid options.

For testing, BRISKO_ROOT names a folder to use as the root of the volume: only files below it are changed, and tools
are found through the caller's PATH.
END
}

label=com.brisko.daemon
root=${BRISKO_ROOT:-}
root=${root%/}
if [ -z "$root" ]; then
  PATH=/usr/bin:/bin:/usr/sbin:/sbin
  export PATH
  # The program must use this Mac and no other.
  unset BRISKO_PRETEND_MACOS BRISKO_PRETEND_NO_NATIVE BRISKO_VIRTUAL_MAC
fi

folder=$root/Library/Brisko
program=$folder/brisko-daemon
uninstaller=$folder/uninstall-service.sh
made_folders=$folder/made-folders
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

# Reports an error at once and in the exit status; the script continues.
report_error() {
  printf '%s\n' "$*" >&2
  had_errors=yes
}

usage_error() {
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
      *) usage_error "Unknown option \"$argument\"." ;;
    esac
  done
}

need_root() {
  [ "$(id -u)" = 0 ] || fail "This has to run as root (sudo)."
}

need_tools() {
  command -v launchctl >/dev/null || fail "launchctl not found: this computer is not a Mac."
}

is_loaded() {
  launchctl print "system/$label" >/dev/null 2>&1
}

# A daemon that is stopped gives the charge back first. Waits until the job is gone: bootout may return before it is.
# If the job stays, nothing is removed, since a daemon without its files would still hold the charge.
stop_job() {
  is_loaded || return 0
  removed=yes
  launchctl bootout "system/$label" || true
  tries_left=30
  while is_loaded; do
    [ "$tries_left" -gt 0 ] ||
      fail "The running service does not stop, so nothing was removed. Restart the Mac, then run this again."
    tries_left=$((tries_left - 1))
    sleep 1
  done
  say "Stopped the service $label."
}

# held_by_log: whether, by the log, the last daemon process left the charge held. "no": it ended in an orderly way,
# which gives the charge back. "yes": it was killed. Empty: the log does not show it.
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

# run_once: starts the program and ends it in an orderly way, which gives the charge back. It runs without settings
# and without a limit, so that it does not hold the charge meanwhile. Right after the Mac has started, the program may
# need a minute to find out how to control the charge.
run_once() {
  # Emptied before the program starts; otherwise the banner of an earlier run might be mistaken for this one's.
  : >"$scratch/output"
  "$program" --limit 100 --config "$scratch/no-settings.json" >>"$scratch/output" 2>&1 &
  pid=$!
  tries_left=90
  until has_started || [ "$tries_left" -eq 0 ] || ! kill -0 "$pid" 2>/dev/null; do
    tries_left=$((tries_left - 1))
    sleep 1
  done
  kill -TERM "$pid" 2>/dev/null || true
  tries_left=20
  while kill -0 "$pid" 2>/dev/null; do
    if [ "$tries_left" -eq 0 ]; then kill -KILL "$pid"; fi
    # The process hangs in the kernel, where no signal reaches it.
    if [ "$tries_left" -le -10 ]; then return 1; fi
    tries_left=$((tries_left - 1))
    sleep 1
  done
  ending=0
  wait "$pid" 2>/dev/null || ending=$?
  pid=
  has_started && [ "$ending" -eq 0 ]
}

# A number in one of its files may end the program at every start. So it never runs with the settings here. It runs
# without its records only if necessary, since they contain macOS's previous limit.
give_back() {
  held=$(held_by_log)
  if [ "$held" = no ]; then
    say "The daemon had given the charge back."
    return 0
  fi
  if [ ! -x "$program" ]; then
    [ "$held" != yes ] ||
      report_error "The daemon was killed, and its program is missing: the charge may still be held. Install the" \
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
      say "If macOS's own charge limit has changed, set it again in System Settings > Battery."
      return 0
    fi
  fi
  report_error "The program does not run, so the charge may still be held." \
    "Its last message: $(tail -n 1 "$scratch/output")"
}

# Removes the data that the run without data created.
put_data_back() {
  [ -n "$moved_aside" ] || return 0
  if rm -rf "$data" && mv "$data.aside" "$data"; then
    moved_aside=
  else
    report_error "The data is now in $data.aside."
  fi
}

# Reports what it removes, and nothing about missing files.
remove() {
  for path; do
    [ -e "$path" ] || [ -L "$path" ] || continue
    if rm -rf "$path"; then
      say "Removed $path"
      removed=yes
    else
      report_error "Could not remove $path"
    fi
  done
}

# remove_link LINK TARGET: removes the link if the installer made it.
remove_link() {
  [ -L "$1" ] && [ "$(readlink "$1")" = "$2" ] || return 0
  if rm -f "$1"; then
    removed_links=yes
  else
    report_error "Could not remove $1"
  fi
}

remove_links() {
  removed_links=
  shared=$root/usr/local
  remove_link "$shared/bin/brisko" "$folder/brisko"
  for page in man1/brisko.1 man5/brisko-config.5 man8/brisko-daemon.8; do
    remove_link "$shared/share/man/$page" "$folder/share/man/$page"
  done
  remove_link "$shared/share/bash-completion/completions/brisko" "$folder/share/completions/brisko.bash"
  remove_link "$shared/share/zsh/site-functions/_brisko" "$folder/share/completions/_brisko"
  remove_link "$shared/share/fish/vendor_completions.d/brisko.fish" "$folder/share/completions/brisko.fish"
  [ -z "$removed_links" ] || say "Removed the links in $shared"
}

# Those folders for the links that the installer made, as it has noted, and that nobody else uses.
remove_made_folders() {
  [ -f "$made_folders" ] || return 0
  made="
$(cat "$made_folders")
"
  for shared in share/man/man1 share/man/man5 share/man/man8 share/man share/bash-completion/completions \
    share/bash-completion share/zsh/site-functions share/zsh share/fish/vendor_completions.d share/fish share bin ''; do
    shared=/usr/local${shared:+/$shared}
    case $made in
      *"
$shared
"*)
        [ ! -d "$root$shared" ] || rmdir "$root$shared" 2>/dev/null || true
        ;;
    esac
  done
}

# Or the system would list a package that is not there. Only a package leaves a receipt.
forget_package() {
  command -v pkgutil >/dev/null && pkgutil --pkg-info "$label" >/dev/null 2>&1 || return 0
  if pkgutil --forget "$label" >/dev/null; then
    say "Removed the receipt of the package $label"
    removed=yes
  else
    report_error "Could not remove the receipt of the package $label"
  fi
}

remove_folder() {
  [ -d "$folder" ] || return 0
  if rmdir "$folder" 2>/dev/null; then
    say "Removed $folder"
    removed=yes
  else
    report_error "$folder contains other files, so it is kept."
  fi
}

# shellcheck disable=SC2317 # the trap calls it
clean_up() {
  status=$?
  trap - EXIT
  # The program writes files when it ends, so the data can only be restored after that.
  if [ -n "$pid" ] && kill -TERM "$pid" 2>/dev/null; then wait "$pid" || true; fi
  [ -z "$moved_aside" ] || put_data_back
  [ -z "$scratch" ] || rm -rf "$scratch"
  exit "$status"
}

main() {
  scratch='' pid='' moved_aside='' had_errors='' removed=''
  read_arguments "$@"
  need_root
  need_tools
  trap clean_up EXIT
  trap 'exit 1' HUP INT TERM
  scratch=$(mktemp -d "$root/tmp/brisko-uninstall.XXXXXX")

  stop_job
  give_back
  put_data_back
  # The job is removed first, so that a Mac that restarts now does not start it, and this script last, so that it can
  # be run again.
  remove "$plist" "$plist.new" "$rotation" "$rotation.new"
  remove_links
  remove_made_folders
  remove "$program" "$program.new" "$folder/brisko" "$folder/brisko.new" "$folder/brisko-lab" \
    "$folder/brisko-lab.new" "$folder/share" "$folder/share.new" "$made_folders"
  if [ -n "$keep_data" ]; then
    for kept in "$data" "$data.aside" "$logs"; do
      [ ! -d "$kept" ] || say "Kept $kept"
    done
  else
    remove "$data" "$data.aside" "$logs"
  fi
  forget_package
  remove "$uninstaller" "$uninstaller.new"
  remove_folder
  [ -n "$removed" ] || say "There was nothing to remove."
  [ -z "$had_errors" ] || exit 1
}

main "$@"
