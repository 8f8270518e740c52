#!/bin/sh
# Installs brisko-daemon as a service of this Mac, or brings an installed one up to date. May be run again at any
# time, also after a run that was cut off. Plain sh: the Mac's own is an old one.
set -eu
umask 022

usage() {
  cat <<'END'
Usage: sudo install-service.sh [--program PATH] [--app PATH] [--allow-unsigned]

Installs brisko-daemon and starts it, now and whenever the Mac starts.

  --program PATH     the program to install; else brisko-daemon beside this script, else
                     build/macos/brisko-daemon of the source tree
  --app PATH         the app whose removal makes the daemon give the charge back; else
                     /Applications/Brisko.app if it is there
  --allow-unsigned   install also a program that no team has signed: any process on this Mac could then
                     command the daemon
  --help             print this

On a Mac whose charge the program cannot control nothing is installed. The exit status is 0 when the service
stands, 1 when it does not, and 2 for arguments that make no sense.

BRISKO_ROOT names a folder that stands for the root of the volume, for trying this out: every file goes below
it, what must belong to root must belong to its owner, and the tools are looked up in the caller's PATH.
END
}

label=com.brisko.daemon
root=${BRISKO_ROOT:-}
root=${root%/}
if [ -z "$root" ]; then
  PATH=/usr/bin:/bin:/usr/sbin:/sbin
  export PATH
  # The probe below must tell of this Mac and no other.
  unset BRISKO_PRETEND_MACOS BRISKO_PRETEND_NO_NATIVE BRISKO_VIRTUAL_MAC
fi

# Not in the folders of the data and of the log, which are deleted as a whole when the app has all data erased.
folder=$root/Library/Brisko
installed=$folder/brisko-daemon
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

refuse_arguments() {
  printf '%s\n' "$*" "Try --help." >&2
  exit 2
}

read_arguments() {
  program='' app='' allow_unsigned=''
  while [ $# -gt 0 ]; do
    case $1 in
      --program | --app)
        [ $# -gt 1 ] || refuse_arguments "$1 wants a path."
        case $2 in
          '' | -*) refuse_arguments "$1 wants a path, not \"$2\"." ;;
        esac
        if [ "$1" = --program ]; then program=$2; else app=${2%/}; fi
        shift
        ;;
      --allow-unsigned) allow_unsigned=yes ;;
      --help)
        usage
        exit 0
        ;;
      *) refuse_arguments "\"$1\" is no argument of this script." ;;
    esac
    shift
  done
  case $app in
    '' | /*) ;;
    *) refuse_arguments "--app wants a path that begins with a slash." ;;
  esac
}

need_root() {
  [ "$(id -u)" = 0 ] || fail "This has to run as root (sudo)."
}

need_tools() {
  for tool in codesign launchctl; do
    command -v "$tool" >/dev/null || fail "There is no $tool here: the service can only be installed on a Mac."
  done
}

find_program() {
  if [ -z "$program" ]; then
    program=$here/brisko-daemon
    [ -f "$program" ] || program=$here/../build/macos/brisko-daemon
  fi
  [ -f "$program" ] || fail "There is no program at $program. Build it, or name it with --program."
}

# Watching an app that is not there would make the daemon give the charge back after ten minutes and rest.
find_app() {
  if [ -n "$app" ]; then
    [ -d "$root$app" ] || fail "There is no app at $app."
  elif [ -d "$root/Applications/Brisko.app" ]; then
    app=/Applications/Brisko.app
  fi
}

# Whoever may rename a folder on the way to a program can put another one in its place, and root would run it.
need_path_of_root() {
  step=$1
  while :; do
    [ -n "$(find "$step" -prune -type d -user "$owner" ! -perm -020 ! -perm -002 2>/dev/null)" ] ||
      fail "$step is no folder that root alone may change, so what runs as root must not lie in it."
    [ "$step" != "${root:-/}" ] || return 0
    step=$(dirname "$step")
  done
}

# What is checked is what gets installed: a copy that nobody else can change. By cat, so that bytes come along
# and nothing else: no flags, no access lists, no attributes.
take_copy() {
  scratch=$(mktemp -d "$root/tmp/brisko-install.XXXXXX")
  copy=$scratch/brisko-daemon
  cat "$program" >"$copy"
  chmod 755 "$copy"
}

check_signature() {
  codesign --verify --strict "$copy" || fail "The signature of $program is missing or broken. Sign it again."
  team=$(codesign --display --verbose=2 "$copy" 2>&1 | sed -n 's/^TeamIdentifier=//p')
  case $team in
    '' | 'not set') ;;
    *) return 0 ;;
  esac
  [ -n "$allow_unsigned" ] ||
    fail "No team has signed $program, so any process on this Mac could command the daemon. Sign it, or install it" \
      "all the same with --allow-unsigned."
  say "Warning: no team has signed the program. Any process on this Mac can command the daemon."
}

check_support() {
  answer=$("$copy" --probe --json 2>/dev/null) || true
  case $answer in
    *'"supported":true'*) ;;
    *'"supported":false'*)
      fail "$(printf '%s\n' "$answer" | sed -n 's/.*"message":"\([^"]*\)".*/\1/p')" "Nothing was installed."
      ;;
    *) fail "$program does not say what this Mac supports${answer:+ (\"$answer\")}. Nothing was installed." ;;
  esac
}

# An uninstaller that was cut off may have left the data beside its place.
mend_data() {
  [ -d "$data.aside" ] || return 0
  if [ -e "$data" ]; then
    say "Data from before an uninstallation that was cut off lies in $data.aside."
  else
    mv "$data.aside" "$data"
    say "Put the data of before back into $data."
  fi
}

make_folder() {
  [ ! -L "$1" ] || fail "$1 is a link. Remove it, and run this again."
  [ -d "$1" ] || mkdir "$1"
  chown root:wheel "$1"
  chmod 755 "$1"
}

# place FILE MODE TARGET: all of the file stands there in the end, or what stood there before.
place() {
  [ ! -d "$3" ] || fail "$3 is a folder. Remove it, and run this again."
  rm -f "$3.new"
  cat "$1" >"$3.new"
  chown root:wheel "$3.new"
  chmod "$2" "$3.new"
  mv -f "$3.new" "$3"
  say "Installed $3"
}

write_job() {
  if [ -z "$app" ]; then
    sed '/<!-- app -->/d' "$here/$label.plist"
  else
    app_text=$(printf '%s\n' "$app" | sed 's/&/\&amp;/g; s/</\&lt;/g; s/>/\&gt;/g')
    APP_TEXT=$app_text awk '
      /<!-- app -->/ { print "\t\t<string>--app</string>\n\t\t<string>" ENVIRON["APP_TEXT"] "</string>"; next }
      { print }' "$here/$label.plist"
  fi
}

# The launch service opens standard error before the daemon runs, so nobody else could make the folder in time.
make_error_log() {
  make_folder "$logs"
  errors=$logs/daemon.err.log
  if [ -L "$errors" ]; then rm "$errors"; fi
  [ -e "$errors" ] || : >"$errors"
  chown root:wheel "$errors"
  chmod 644 "$errors"
}

is_loaded() {
  launchctl print "system/$label" >/dev/null 2>&1
}

# What counts is whether the job is gone: told to stop, the launch service may answer before it is.
stop_job() {
  is_loaded || return 0
  launchctl bootout "system/$label" || true
  patience=30
  while is_loaded; do
    [ "$patience" -gt 0 ] || fail "The running service does not stop. Restart the Mac, then run this again."
    patience=$((patience - 1))
    sleep 1
  done
  say "Stopped the running service; the new one takes over."
}

# Just after an older job was stopped, the launch service may still refuse a new one for a moment.
start_job() {
  launchctl enable "system/$label"
  patience=5
  until launchctl bootstrap system "$plist"; do
    patience=$((patience - 1))
    [ "$patience" -gt 0 ] ||
      fail "The launch service does not take the job. \"launchctl print system/$label\" may tell why."
    sleep 1
  done
  say "Started the service $label${app:+, which watches $app}."
}

# shellcheck disable=SC2317 # the trap calls it
clean_up() {
  status=$?
  trap - EXIT
  [ -z "$scratch" ] || rm -rf "$scratch"
  if [ "$status" -ne 0 ] && [ -n "$begun" ]; then
    say "The service is not completely installed. Run this again, or run uninstall-service.sh." >&2
  fi
  exit "$status"
}

main() {
  here=$(CDPATH='' cd -- "$(dirname -- "$0")" && pwd)
  scratch='' begun=''
  read_arguments "$@"
  need_root
  need_tools
  find_program
  find_app
  owner=0
  [ -z "$root" ] || owner=$(find "$root" -prune -exec ls -ldn {} \; | awk '{ print $3 }')
  # This looks at the folder that the program's own will lie in, too.
  need_path_of_root "$root/Library/LaunchDaemons"

  trap clean_up EXIT
  trap 'exit 1' HUP INT TERM
  take_copy
  check_signature
  check_support
  write_job >"$scratch/job"

  begun=yes
  mend_data
  make_folder "$folder"
  need_path_of_root "$folder"
  # The uninstaller first, so that it is there for whatever follows.
  place "$here/uninstall-service.sh" 755 "$uninstaller"
  place "$copy" 755 "$installed"
  [ -d "$root/etc/newsyslog.d" ] || mkdir "$root/etc/newsyslog.d"
  place "$here/newsyslog.d/$label.conf" 644 "$rotation"
  make_error_log
  place "$scratch/job" 644 "$plist"
  # Only now, so that the charge is left alone for no longer than it takes to start again.
  stop_job
  start_job
  say "To remove it: sudo $uninstaller"
}

main "$@"
