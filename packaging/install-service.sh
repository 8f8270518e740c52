#!/bin/sh
# Installs brisko-daemon as a service on this Mac, or upgrades an installed one. It can be run again at any time,
# also after an interrupted run. Written in POSIX sh, because the shells that macOS provides are old.
set -eu
umask 022

usage() {
  cat <<'END'
Usage: sudo install-service.sh [--program PATH] [--app PATH] [--allow-unsigned]

Installs brisko-daemon, starts it now, and has it started whenever the Mac starts.

  --program PATH     the program to install; default: brisko-daemon beside this script, otherwise
                     build/macos/brisko-daemon in the source tree
  --app PATH         the daemon gives the charge back when this app is removed; default:
                     /Applications/Brisko.app if it exists
  --allow-unsigned   install the program even if no team has signed it: any process on this Mac could then
                     control the daemon
  --help             print this

Nothing is installed if the program cannot control the charge of this Mac. The exit status is 0 if the service is
installed, 1 if it is not, and 2 for invalid options.

For testing, BRISKO_ROOT names a folder to use as the root of the volume: all files are installed below it, files
that must belong to root must belong to the folder's owner, and tools are found through the caller's PATH.
END
}

label=com.brisko.daemon
root=${BRISKO_ROOT:-}
root=${root%/}
if [ -z "$root" ]; then
  PATH=/usr/bin:/bin:/usr/sbin:/sbin
  export PATH
  # The probe below must report on this Mac and no other.
  unset BRISKO_PRETEND_MACOS BRISKO_PRETEND_NO_NATIVE BRISKO_VIRTUAL_MAC
fi

# Not in the data or log folder: the app can have these erased.
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

usage_error() {
  printf '%s\n' "$*" "Try --help." >&2
  exit 2
}

read_arguments() {
  program='' app='' allow_unsigned=''
  while [ $# -gt 0 ]; do
    case $1 in
      --program | --app)
        [ $# -gt 1 ] || usage_error "$1 needs a path."
        case $2 in
          '' | -*) usage_error "$1 needs a path, not \"$2\"." ;;
        esac
        if [ "$1" = --program ]; then program=$2; else app=${2%/}; fi
        shift
        ;;
      --allow-unsigned) allow_unsigned=yes ;;
      --help)
        usage
        exit 0
        ;;
      *) usage_error "Unknown option \"$1\"." ;;
    esac
    shift
  done
  case $app in
    '' | /*) ;;
    *) usage_error "--app needs an absolute path." ;;
  esac
}

need_root() {
  [ "$(id -u)" = 0 ] || fail "This has to run as root (sudo)."
}

need_tools() {
  for tool in codesign launchctl; do
    command -v "$tool" >/dev/null || fail "$tool not found: the service can only be installed on a Mac."
  done
}

find_program() {
  if [ -z "$program" ]; then
    program=$here/brisko-daemon
    [ -f "$program" ] || program=$here/../build/macos/brisko-daemon
  fi
  [ -f "$program" ] || fail "There is no program at $program. Build it, or give its path with --program."
}

# A daemon that watches a missing app gives the charge back after ten minutes and becomes dormant.
find_app() {
  if [ -n "$app" ]; then
    [ -d "$root$app" ] || fail "There is no app at $app."
  elif [ -d "$root/Applications/Brisko.app" ]; then
    app=/Applications/Brisko.app
  fi
}

# A user who can rename a folder on the path to the program could replace the program, and root would run it.
need_path_of_root() {
  step=$1
  while :; do
    [ -n "$(find "$step" -prune -type d -user "$owner" ! -perm -020 ! -perm -002 2>/dev/null)" ] ||
      fail "$step is not a folder that only root can change, so a program that runs as root must not be in it."
    [ "$step" != "${root:-/}" ] || return 0
    step=$(dirname "$step")
  done
}

# Checks and installs the same copy, which nobody else can change. cat copies only the bytes: no flags, access
# lists or attributes.
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
    fail "No team has signed $program, so any process on this Mac could control the daemon. Sign it, or install it" \
      "anyway with --allow-unsigned."
  say "Warning: no team has signed the program. Any process on this Mac can control the daemon."
}

check_support() {
  answer=$("$copy" --probe --json 2>/dev/null) || true
  case $answer in
    *'"supported":true'*) ;;
    *'"supported":false'*)
      fail "$(printf '%s\n' "$answer" | sed -n 's/.*"message":"\([^"]*\)".*/\1/p')" "Nothing was installed."
      ;;
    *) fail "$program does not report what this Mac supports${answer:+ (\"$answer\")}. Nothing was installed." ;;
  esac
}

# An interrupted uninstallation may have left the data in a temporary place.
restore_data() {
  [ -d "$data.aside" ] || return 0
  if [ -e "$data" ]; then
    say "Data from before an interrupted uninstallation is in $data.aside."
  else
    mv "$data.aside" "$data"
    say "Restored the previous data to $data."
  fi
}

make_folder() {
  [ ! -L "$1" ] || fail "$1 is a link. Remove it, then run this again."
  [ -d "$1" ] || mkdir "$1"
  chown root:wheel "$1"
  chmod 755 "$1"
}

# place FILE MODE TARGET: replaces the target atomically.
place() {
  [ ! -d "$3" ] || fail "$3 is a folder. Remove it, then run this again."
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

# launchd opens standard error before the daemon runs, so the daemon could not create the folder in time.
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

# Waits until the job is gone: bootout may return before it is.
stop_job() {
  is_loaded || return 0
  launchctl bootout "system/$label" || true
  tries_left=30
  while is_loaded; do
    [ "$tries_left" -gt 0 ] || fail "The running service does not stop. Restart the Mac, then run this again."
    tries_left=$((tries_left - 1))
    sleep 1
  done
  say "Stopped the running service; the new one takes over."
}

# Just after an older job was stopped, launchd may still reject a new one for a moment.
start_job() {
  launchctl enable "system/$label"
  tries_left=5
  until launchctl bootstrap system "$plist"; do
    tries_left=$((tries_left - 1))
    [ "$tries_left" -gt 0 ] ||
      fail "launchd rejected the job. \"launchctl print system/$label\" may show why."
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
  # This also checks the folder in which the program's folder will be.
  need_path_of_root "$root/Library/LaunchDaemons"

  trap clean_up EXIT
  trap 'exit 1' HUP INT TERM
  take_copy
  check_signature
  check_support
  write_job >"$scratch/job"

  begun=yes
  restore_data
  make_folder "$folder"
  need_path_of_root "$folder"
  # The uninstaller first, so that it is available whatever happens next.
  place "$here/uninstall-service.sh" 755 "$uninstaller"
  place "$copy" 755 "$installed"
  [ -d "$root/etc/newsyslog.d" ] || mkdir "$root/etc/newsyslog.d"
  place "$here/newsyslog.d/$label.conf" 644 "$rotation"
  make_error_log
  place "$scratch/job" 644 "$plist"
  # Only now, so that the charge is uncontrolled for no longer than a restart takes.
  stop_job
  start_job
  say "To remove it: sudo $uninstaller"
}

main "$@"
