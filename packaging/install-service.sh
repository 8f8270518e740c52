#!/bin/sh
# Installs brisko-daemon as a service on this Mac, or upgrades an installed one. It can be run again at any time,
# also after an interrupted run. Written in POSIX sh, because the shells that macOS provides are old.
set -eu
umask 022

usage() {
  cat <<'END'
Usage: sudo install-service.sh [--program PATH] [--app PATH] [--yes]

Installs brisko-daemon, brisko and brisko-lab, starts the daemon now, and has it started whenever the Mac starts.

  --program PATH   the daemon to install, with brisko and brisko-lab beside it; default:
                   build/macos/brisko-daemon in the source tree
  --app PATH       the daemon gives the charge back when this app is removed; default: the app of the
                   installed job, otherwise /Applications/Brisko.app, if it exists
  --yes            do not ask before a program is installed that no team has signed: every process on this Mac
                   could then command the daemon
  --help           print this

The package runs this script too: --check only checks this Mac and the daemon beside the script, before the package
installs its files; --placed does the rest when they are in place.

Nothing is installed if the program cannot control the charge of this Mac, or is older than the installed one. The
exit status is 0 if the service runs, 1 if it does not, and 2 for invalid options.

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
  # The probe and sw_vers must report on this Mac and no other.
  unset BRISKO_PRETEND_MACOS BRISKO_PRETEND_NO_NATIVE BRISKO_VIRTUAL_MAC SYSTEM_VERSION_COMPAT
fi

# Not in the data or log folder: the app can have these erased.
folder=$root/Library/Brisko
installed=$folder/brisko-daemon
uninstaller=$folder/uninstall-service.sh
made_folders=$folder/made-folders
plist=$root/Library/LaunchDaemons/$label.plist
rotation=$root/etc/newsyslog.d/$label.conf
logs=$root/Library/Logs/Brisko
errors=$logs/daemon.err.log
data="$root/Library/Application Support/Brisko"

say() {
  printf '%s\n' "$*"
}

fail() {
  printf '%s\n' "$*" >&2
  exit 1
}

refuse() {
  fail "$*" "Nothing was installed."
}

usage_error() {
  printf '%s\n' "$*" "Try --help." >&2
  exit 2
}

read_arguments() {
  program='' app='' yes='' check='' placed=''
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
      --yes) yes=yes ;;
      --check) check=yes ;;
      --placed) placed=yes ;;
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

# ----------------------------------------------------------------------------------------------------------------
# Checks. They change nothing.

need_root() {
  [ "$(id -u)" = 0 ] || fail "This has to run as root (sudo)."
}

need_tools() {
  for tool in codesign launchctl plutil sw_vers sysctl ioreg; do
    command -v "$tool" >/dev/null || fail "$tool not found: the service can only be installed on a Mac."
  done
}

check_mac() {
  [ "$(sysctl -n hw.optional.arm64 2>/dev/null)" = 1 ] || refuse "This Mac has no Apple silicon."
  system=$(sw_vers -productVersion)
  [ "${system%%.*}" -ge 13 ] || refuse "This Mac runs macOS $system, and the daemon needs macOS 13 or later."
  [ "$(sysctl -n kern.hv_vmm_present 2>/dev/null)" != 1 ] ||
    refuse "This is a virtual machine, which cannot control the charge of a battery."
  case $(ioreg -r -c AppleSmartBattery) in
    '' | *'"BatteryInstalled" = No'*) refuse "This Mac has no battery." ;;
  esac
}

find_programs() {
  if [ -n "$placed" ]; then
    program=$installed
  elif [ -z "$program" ]; then
    program=$here/brisko-daemon
    [ -n "$check" ] || program=$here/../build/macos/brisko-daemon
  fi
  [ -f "$program" ] || fail "There is no program at $program. Build it, or give its path with --program."
  client=$(dirname -- "$program")/brisko lab=$(dirname -- "$program")/brisko-lab
  [ -z "$check" ] || return 0
  for beside in "$client" "$lab"; do
    [ -f "$beside" ] || fail "There is no program at $beside. Build it, with the daemon."
  done
}

# integer TEXT: the number as JSON has it, if the daemon reads TEXT as one.
integer() {
  digits=${1#[+-]}
  case $digits in
    '' | *[!0-9]*) return 1 ;;
  esac
  while [ "${#digits}" -gt 1 ] && [ "${digits#0}" != "$digits" ]; do digits=${digits#0}; done
  [ "${#digits}" -le 18 ] || return 1
  case $1 in
    -*) [ "$digits" = 0 ] || digits=-$digits ;;
  esac
  printf '%s\n' "$digits"
}

# What the owner of this Mac has added to the installed job, as the daemon reads it: the last value that is valid.
read_installed_job() {
  job_app='' job_limit='' job_lower='' job_config=''
  [ -f "$plist" ] || return 0
  index=1 option=
  while argument=$(plutil -extract "ProgramArguments.$index" raw -o - "$plist" 2>/dev/null); do
    case $option in
      --app) job_app=$argument option='' ;;
      --config) job_config=$argument option='' ;;
      --limit | --lower)
        if number=$(integer "$argument"); then
          if [ "$option" = --limit ]; then job_limit=$number; else job_lower=$number; fi
        fi
        option=
        ;;
      --guard) option='' ;;
      *) option=$argument ;;
    esac
    index=$((index + 1))
  done
}

# A daemon that watches a missing app gives the charge back after ten minutes and becomes dormant.
find_app() {
  if [ -n "$app" ]; then
    [ -d "$root$app" ] || fail "There is no app at $app."
  elif [ -n "$job_app" ] && [ -d "$root$job_app" ]; then
    app=$job_app
  elif [ -d "$root/Applications/Brisko.app" ]; then
    app=/Applications/Brisko.app
  fi
}

# only_root_changes PATH TYPE: whether this is a file (f) or a folder (d) that nobody but root can change.
only_root_changes() {
  [ -n "$(find "$1" -prune -type "$2" -user "$owner" ! -perm -020 ! -perm -002 2>/dev/null)" ]
}

# A user who can rename a folder on the path to the program could replace the program, and root would run it.
need_path_of_root() {
  step=$1
  while :; do
    only_root_changes "$step" d ||
      fail "$step is not a folder that only root can change, so a program that runs as root must not be in it."
    [ "$step" != "${root:-/}" ] || return 0
    step=${step%/*}
    step=${step:-/}
  done
}

# launchd opens this file as root, and whatever is at its place.
check_error_log() {
  [ ! -L "$logs" ] || fail "$logs is a link. Remove it, then run this again."
  if [ -L "$errors" ] || { [ -e "$errors" ] && [ ! -f "$errors" ]; }; then
    fail "$errors is not a plain file. Remove it, then run this again."
  fi
}

# Checks and installs the same copies, which nobody else can change. cat copies only the bytes: no flags, access
# lists or attributes.
take_copies() {
  copy=$program client_copy=$client lab_copy=$lab
  [ -z "$placed" ] || return 0
  copy=$scratch/brisko-daemon
  cat "$program" >"$copy"
  chmod 755 "$copy"
  [ -z "$check" ] || return 0
  client_copy=$scratch/brisko lab_copy=$scratch/brisko-lab
  cat "$client" >"$client_copy"
  cat "$lab" >"$lab_copy"
  chmod 755 "$client_copy" "$lab_copy"
}

# read_signature COPY NAME IDENTIFIER: sets team to the team that signed the program, or to nothing.
read_signature() {
  codesign --verify --strict "$1" || refuse "The signature of $2 is missing or broken. Sign it again."
  codesign --display --verbose=2 "$1" >"$scratch/signature" 2>&1 || true
  team=$(sed -n 's/^TeamIdentifier=//p' "$scratch/signature")
  [ "$team" != 'not set' ] || team=
  [ -z "$team" ] || grep -Fqx "Identifier=$3" "$scratch/signature" ||
    refuse "$2 is not signed as $3. Sign it again with make -C packaging sign."
}

# The daemon takes commands only from programs of its own team, and brisko has to be one of them.
check_signatures() {
  daemon_team='' team=''
  read_signature "$copy" "$program" com.brisko.daemon
  daemon_team=$team
  if [ -z "$check" ]; then
    read_signature "$client_copy" "$client" com.brisko.Brisko
    [ "$team" = "$daemon_team" ] ||
      refuse "The daemon was signed by ${daemon_team:-no team} and brisko by ${team:-no team}, so the daemon would" \
        "not listen to brisko. Sign both with the same identity."
    read_signature "$lab_copy" "$lab" com.brisko.lab
    [ "$team" = "$daemon_team" ] ||
      refuse "The daemon was signed by ${daemon_team:-no team} and brisko-lab by ${team:-no team}." \
        "Sign all with the same identity."
  fi
  [ -z "$daemon_team" ] || return 0
  say "No team has signed $program. Then the daemon cannot tell who talks to it:" \
    "every process on this Mac may command it, and have all its data erased."
  [ -z "$check" ] || refuse "A package installs only what a team has signed."
  confirmed || refuse "To install it nevertheless, run this in a terminal and answer y, or give --yes."
}

confirmed() {
  [ -z "$yes" ] || return 0
  [ -t 0 ] || return 1
  printf '%s' "Install it nevertheless? [y/N] "
  read -r answer || return 1
  case $answer in
    [Yy] | [Yy][Ee][Ss]) return 0 ;;
    *) return 1 ;;
  esac
}

# version_of PROGRAM: nothing for a program that does not report one.
version_of() {
  number=$("$1" --version 2>/dev/null) || number=
  case $number in
    *[!0-9.]*) ;;
    *) printf '%s\n' "$number" ;;
  esac
}

# is_older A B: whether the version A comes before the version B.
is_older() {
  printf '%s\n' "$1" "$2" | awk -F . '
    NR == 1 { for (i = 1; i <= 3; i++) first[i] = $i + 0 }
    NR == 2 { for (i = 3; i >= 1; i--) if (first[i] != $i + 0) older = first[i] < $i + 0 }
    END { exit !older }'
}

# A program that someone else could have replaced is not run.
check_version() {
  version=$(version_of "$copy")
  [ -n "$version" ] || refuse "$program does not report its version."
  only_root_changes "$folder" d && only_root_changes "$installed" f || return 0
  installed_version=$(version_of "$installed")
  [ -n "$installed_version" ] || return 0
  ! is_older "$version" "$installed_version" ||
    refuse "Version $installed_version is installed, and this is the older version $version. To install it, first" \
      "remove the newer one with \"sudo $uninstaller --keep-data\"."
}

# Where macOS has closed the keys and offers no limit of its own, a daemon only observes. None is installed for that,
# but one that is there is upgraded: the newer one may know a way, and gives back what can be given back.
check_support() {
  answer=$("$copy" --probe --json 2>/dev/null) || true
  case $answer in
    *'"supported":true'*) return 0 ;;
    *'"supported":false'*) message=$(printf '%s\n' "$answer" | sed -n 's/.*"message":"\([^"]*\)".*/\1/p') ;;
    *) refuse "$program does not report what this Mac supports${answer:+ (\"$answer\")}." ;;
  esac
  case $answer in
    *'"reason":"system-locked"'*) [ -f "$installed" ] || refuse "$message" ;;
    *) refuse "$message" ;;
  esac
  say "$message The installed daemon is upgraded nevertheless."
}

# ----------------------------------------------------------------------------------------------------------------
# Files

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
  if [ -e "$3.new" ] || [ -L "$3.new" ]; then rm -f "$3.new"; fi
  cat "$1" >"$3.new"
  chown root:wheel "$3.new"
  chmod "$2" "$3.new"
  mv -f "$3.new" "$3"
  say "Installed $3"
}

# The manuals, documents and completions. Nothing that runs needs them, so for a moment they may be missing.
place_share() {
  [ ! -e "$folder/share.new" ] || rm -rf "$folder/share.new"
  cp -R "$scratch/files/share" "$folder/share.new"
  chown -R root:wheel "$folder/share.new"
  [ ! -e "$folder/share" ] || rm -rf "$folder/share"
  mv "$folder/share.new" "$folder/share"
  say "Installed $folder/share"
}

place_programs() {
  sh "$here/stage-files.sh" "$copy" "$client_copy" "$lab_copy" "$scratch/files"
  # The uninstaller first, so that it is available whatever happens next.
  place "$scratch/files/uninstall-service.sh" 755 "$uninstaller"
  place "$scratch/files/brisko-daemon" 755 "$installed"
  place "$scratch/files/brisko-lab" 755 "$folder/brisko-lab"
  place "$scratch/files/brisko" 755 "$folder/brisko"
  place_share
}

# make_shared_folder PATH: with the folders above it. Those that it makes are noted first, for the uninstaller.
make_shared_folder() {
  [ ! -d "$1" ] || return 0
  make_shared_folder "${1%/*}" || return 1
  printf '%s\n' "${1#"$root"}" >>"$made_folders"
  mkdir "$1" 2>/dev/null
}

# find_foreign_folders: sets foreign to those of the shared folders that are links, or that not only root can change.
# Through such a folder its owner could have root make a link anywhere, for example in /etc/sudoers.d.
find_foreign_folders() {
  set -- "$root/usr" "$shared"
  for folders in bin share share/man share/man/man1 share/man/man5 share/man/man8 share/bash-completion \
    share/bash-completion/completions share/zsh share/zsh/site-functions share/fish share/fish/vendor_completions.d; do
    set -- "$@" "$shared/$folders"
  done
  foreign="
$(find "$@" -prune \( ! -type d -o ! -user "$owner" -o -perm -020 -o -perm -002 \) -print 2>/dev/null || true)
"
}

# is_in_foreign_folder LINK
is_in_foreign_folder() {
  step=${1%/*}
  while [ "$step" != "$root" ]; do
    case $foreign in
      *"
$step
"*) return 0 ;;
    esac
    step=${step%/*}
  done
  return 1
}

# make_link LINK TARGET: leaves alone what somebody else has put there.
make_link() {
  [ ! -L "$1" ] || [ "$(readlink "$1")" != "$2" ] || return 0
  if [ -e "$1" ] || [ -L "$1" ]; then
    say "Kept $1, which is not from here. Use $2."
  elif is_in_foreign_folder "$1"; then
    say "Did not make $1, since $step is not a folder that only root can change. Use $2."
  elif ! make_shared_folder "${1%/*}" || ! ln -s "$2" "$1"; then
    say "Could not make $1. Use $2."
  fi
}

# Where shells and man look. These folders may belong to a user, so nothing in them is ever run as root, and nothing
# is made in those that do.
link_into_paths() {
  shared=$root/usr/local
  find_foreign_folders
  make_link "$shared/bin/brisko" "$folder/brisko"
  for page in man1/brisko.1 man5/brisko-config.5 man8/brisko-daemon.8; do
    make_link "$shared/share/man/$page" "$folder/share/man/$page"
  done
  make_link "$shared/share/bash-completion/completions/brisko" "$folder/share/completions/brisko.bash"
  make_link "$shared/share/zsh/site-functions/_brisko" "$folder/share/completions/_brisko"
  make_link "$shared/share/fish/vendor_completions.d/brisko.fish" "$folder/share/completions/brisko.fish"
  say "Linked brisko, its manuals and its completions into $shared"
}

# The daemon cannot watch a missing settings file: it would notice a change only at the next check of the battery.
lay_settings() {
  [ -d "$data" ] || make_folder "$data"
  settings=$data/config.json
  [ ! -e "$settings.new" ] || rm -f "$settings.new"
  if [ -e "$settings" ] || [ -L "$settings" ]; then return 0; fi
  if [ -n "$job_config" ]; then
    say "The job names its own settings, $job_config."
    return 0
  fi
  printf '%s' '{"blinkSeconds":2.0,"calDrain":15,"calSoakMinutes":60,"calibrate":false,"discharge":false,' \
    '"enabled":true,"history":true,"historyDays":365,"hysteresis":5,"led":true,"limit":'"${job_limit:-80}"',' \
    '"resetStats":false,"thermal":false,"thermalLimit":40,"topUp":false,"topUpHours":0}' >"$settings.new"
  chown root:wheel "$settings.new"
  chmod 644 "$settings.new"
  # The app may have written settings meanwhile, and they win.
  mv -n "$settings.new" "$settings"
  [ ! -e "$settings.new" ] || rm -f "$settings.new"
  say "Installed $settings, with a limit of ${job_limit:-80} %"
}

# Older jobs left the modes to the umask of the system, and the app cannot read a file of mode 640.
open_records() {
  for record in config status stats calibration; do
    file=$data/$record.json
    if [ -f "$file" ] && [ ! -L "$file" ]; then chmod 644 "$file"; fi
  done
}

# launchd opens standard error before the daemon runs, so the daemon could not create the folder in time.
make_error_log() {
  check_error_log
  make_folder "$logs"
  [ -e "$errors" ] || : >"$errors"
  chown root:wheel "$errors"
  chmod 644 "$errors"
}

# argument OPTION VALUE: its lines in the job; none without a value.
argument() {
  [ -n "$2" ] || return 0
  printf '\t\t<string>%s</string>\n' "$1" "$(printf '%s\n' "$2" | sed 's/&/\&amp;/g; s/</\&lt;/g; s/>/\&gt;/g')"
}

write_job() {
  while IFS= read -r line; do
    case $line in
      *'<!-- more arguments -->'*)
        argument --app "$app"
        argument --limit "$job_limit"
        argument --lower "$job_lower"
        argument --config "$job_config"
        ;;
      *) printf '%s\n' "$line" ;;
    esac
  done <"$here/$label.plist"
}

# ----------------------------------------------------------------------------------------------------------------
# The service

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

is_disabled() {
  launchctl print-disabled system 2>/dev/null | grep -Eq "\"$label\" => (disabled|true)"
}

# Just after an older job was stopped, launchd may still reject a new one for a moment.
start_job() {
  # "enable" leaves an entry for ever, so it is used only where one is there already.
  ! is_disabled || launchctl enable "system/$label"
  # What is there after the start is new.
  rm -f "$data/status.json"
  tries_left=5
  until launchctl bootstrap system "$plist" 2>"$scratch/rejection"; do
    tries_left=$((tries_left - 1))
    [ "$tries_left" -gt 0 ] || not_loaded
    sleep 1
  done
}

# not_loaded: says what launchd said, such as "Bootstrap failed: 5: Input/output error", and ends the script.
not_loaded() {
  begun=
  say "Everything is installed, but launchd rejected the job:" >&2
  cat "$scratch/rejection" >&2
  if grep -q '^Bootstrap failed: 5' "$scratch/rejection"; then
    fail "That happens when it is switched off. Look in System Settings > General > Login Items & Extensions" \
      "(Login Items before macOS 15), under \"Allow in the Background\", switch on what belongs to Brisko or to the" \
      "team that signed it, and run this again."
  fi
  fail "\"launchctl print system/$label\" may show why. Run this again, or remove it: sudo $uninstaller"
}

has_reported() {
  [ -f "$data/status.json" ] && grep -q '"ts":.*}$' "$data/status.json" 2>/dev/null
}

# Right after the Mac has started, the daemon may need a minute to find out how to control the charge.
seconds_to_wait() {
  booted=$(sysctl -n kern.boottime 2>/dev/null | sed -n 's/^{ sec = \([0-9]*\),.*/\1/p')
  if [ -n "$booted" ] && [ $(($(date +%s) - booted)) -lt 300 ]; then echo 90; else echo 30; fi
}

wait_for_daemon() {
  wait=$(seconds_to_wait)
  seconds_left=$wait
  until has_reported; do
    [ "$seconds_left" -gt 0 ] || not_started
    seconds_left=$((seconds_left - 1))
    sleep 1
  done
  say "Started the service $label${app:+, which watches $app}."
}

# reported NAME: its value in what launchd reports of the job.
reported() {
  sed -n "s/^[[:blank:]]*$1 = //p" "$scratch/report" | head -n 1
}

# not_started: says what launchd knows, and ends the script.
not_started() {
  begun=
  launchctl print "system/$label" >"$scratch/report" 2>/dev/null || true
  ending=$(reported 'last terminating signal')
  [ -n "$ending" ] || ending=$(reported 'last exit code')
  process=$(reported pid)
  say "Everything is installed, but the daemon has not reported in $wait s." >&2
  case ${process:+running}$ending in
    running*) fail "It runs as process $process. $logs/daemon.log shows what it does." ;;
    1 | 1:*) say "It ended with status 1: it could not open the controller. Restart the Mac." >&2 ;;
    2 | 2:*) say "It ended with status 2: it found no way to control the charge of this Mac." >&2 ;;
    78 | 78:*) say "launchd could not start it (78). Check that $errors is a plain file." >&2 ;;
    Killed*) say "macOS ended it ($ending), as it does with a program whose signature is broken. Sign it again." >&2 ;;
    Abort*) say "It ended itself ($ending): a number in one of its files in $data does not fit." >&2 ;;
    [1-9]*) say "It ended with status $ending." >&2 ;;
    '' | 0* | '(never'*) say "launchd reports \"$(reported state)\"." >&2 ;;
    *) say "It crashed ($ending)." >&2 ;;
  esac
  [ ! -s "$errors" ] || say "Its last message: $(tail -n 1 "$errors")" >&2
  fail "launchd keeps trying. To remove the service: sudo $uninstaller"
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

check_everything() {
  need_root
  need_tools
  check_mac
  find_programs
  read_installed_job
  find_app
  # This also checks the folder in which the program's folder will be.
  need_path_of_root "$root/Library/LaunchDaemons"
  check_error_log
  scratch=$(mktemp -d "$root/tmp/brisko-install.XXXXXX")
  take_copies
  check_signatures
  [ -n "$placed" ] || check_version
  check_support
}

main() {
  here=$(CDPATH='' cd -- "$(dirname -- "$0")" && pwd)
  scratch='' begun=''
  read_arguments "$@"
  owner=0
  [ -z "$root" ] || owner=$(find "$root" -prune -exec ls -ldn {} \; | awk '{ print $3 }')
  trap clean_up EXIT
  trap 'exit 1' HUP INT TERM
  check_everything
  [ -z "$check" ] || return 0
  write_job >"$scratch/job"

  begun=yes
  restore_data
  make_folder "$folder"
  need_path_of_root "$folder"
  [ -n "$placed" ] || place_programs
  link_into_paths
  [ -d "$root/etc/newsyslog.d" ] || mkdir "$root/etc/newsyslog.d"
  place "$here/newsyslog.d/$label.conf" 644 "$rotation"
  lay_settings
  open_records
  make_error_log
  place "$scratch/job" 644 "$plist"
  # Only now, so that the charge is uncontrolled for no longer than a restart takes.
  stop_job
  start_job
  wait_for_daemon
  say "\"brisko status\" shows what it does. To remove it: sudo $uninstaller"
}

main "$@"
