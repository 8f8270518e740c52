#!/bin/sh
# Tries brisko-daemon on a real Mac for about a quarter of an hour, settles questions that only a Mac can answer,
# gives everything back, and checks that. Written in POSIX sh, because the shells that macOS provides are old.
set -eu
umask 022

usage() {
  cat <<'END'
Usage: sudo first-mac.sh [--program PATH | --package FILE] [--out FILE] [--skip STEP]... [--yes]
       sudo first-mac.sh --give-back

Installs brisko-daemon, tries it step by step, and removes it again. Before each step it says what it will do and how
long that takes, and asks. At the end, or when it is interrupted, it removes everything that it installed, and checks
that the battery may charge, that the adapter is connected, and that no wake is scheduled. Then it prints a table and
writes one file for the developers.

  --program PATH   the daemon to try, with its other programs beside it; default: build/macos/brisko-daemon
                   in the source tree, which is built if it is missing
  --package FILE   try this package instead
  --out FILE       the file to write; default: brisko-first-light.tar in this folder
  --skip STEP      leave this step out; can be given several times
  --yes            do not ask; leave out what needs somebody at the Mac
  --give-back      only undo an earlier run that could not finish, for example because of a power failure
  --help           print this

Steps:
END
  for step in $all_steps; do
    describe "$step"
    printf '  %-14s %s, about %s\n' "$step" "$title" "$(duration "$seconds")"
  done
  cat <<'END'

The exit status is 0 if everything was given back, 1 if it was not, if this Mac is not suitable or if the run was
interrupted, and 2 for invalid options.

For testing, BRISKO_ROOT names a folder to use as the root of the volume: only files below it are changed, and tools
are found through the caller's PATH.
END
}

label=com.brisko.daemon
wake_owner=com.brisko.first-light
root=${BRISKO_ROOT:-}
root=${root%/}
if [ -z "$root" ]; then
  PATH=/usr/bin:/bin:/usr/sbin:/sbin
  export PATH
  # Everything must be about this Mac and no other.
  unset BRISKO_PRETEND_MACOS BRISKO_PRETEND_NO_NATIVE BRISKO_VIRTUAL_MAC SYSTEM_VERSION_COMPAT
fi

folder=$root/Library/Brisko
client=$folder/brisko
plist=$root/Library/LaunchDaemons/$label.plist
rotation=$root/etc/newsyslog.d/$label.conf
logs=$root/Library/Logs/Brisko
data="$root/Library/Application Support/Brisko"
# Exists while there is something to give back, with a line for each scheduled wake. Only root can write there.
marker=$root/var/db/$wake_owner

all_steps='system selftest probe controller limit-client watches install clients hold discharge light footprint signal
sleep plug-asleep removal'

say() {
  printf '%s\n' "$*"
}

# heading TEXT: after an empty line.
heading() {
  printf '\n%s\n' "$*"
}

fail() {
  printf '%s\n' "$*" >&2
  exit 1
}

usage_error() {
  printf '%s\n' "$*" "Try --help." >&2
  exit 2
}

duration() {
  if [ "$1" -lt 60 ]; then echo "$1 s"; else echo "$((($1 + 30) / 60)) min"; fi
}

# describe STEP: sets title and seconds, the time that the step usually takes.
describe() {
  case $1 in
    system) seconds=1 title='which Mac and which macOS this is' ;;
    selftest) seconds=5 title="run the daemon's self-test" ;;
    probe) seconds=5 title='find out how charging can be stopped here, without doing it' ;;
    controller) seconds=1 title='ask the controller one question' ;;
    limit-client) seconds=5 title="call macOS's own charge limit, without setting it" ;;
    watches) seconds=5 title='watch a file and a folder being removed, in the temporary folder' ;;
    install) seconds=30 title='install and start the service' ;;
    clients) seconds=20 title='command the daemon from a known and from a foreign program' ;;
    hold) seconds=150 title='stop charging, and wait until no current flows' ;;
    discharge) seconds=90 title='cut the adapter off for a minute' ;;
    light) seconds=30 title='show three colours with the light of the connector, and ask for them' ;;
    footprint) seconds=60 title='measure memory, threads and wake-ups until the daemon has run for five minutes' ;;
    signal) seconds=30 title='end the daemon while every core is busy' ;;
    sleep) seconds=270 title='sleep for three minutes until a scheduled wake' ;;
    plug-asleep) seconds=240 title='plug the adapter in while the Mac sleeps' ;;
    removal) seconds=20 title='remove everything, and check that nothing is left' ;;
    *) return 1 ;;
  esac
}

read_arguments() {
  program='' package='' out='' skipped=' ' yes='' only_give_back=''
  while [ $# -gt 0 ]; do
    case $1 in
      --program | --package | --out | --skip)
        [ $# -gt 1 ] || usage_error "$1 needs a value."
        case $2 in
          '' | -*) usage_error "$1 needs a value, not \"$2\"." ;;
        esac
        case $1 in
          --program) program=$2 ;;
          --package) package=$2 ;;
          --out) out=$2 ;;
          --skip)
            describe "$2" || usage_error "There is no step \"$2\"."
            [ "$2" != removal ] || usage_error "The removal cannot be skipped."
            skipped="$skipped$2 "
            ;;
        esac
        shift
        ;;
      --yes) yes=yes ;;
      --give-back) only_give_back=yes ;;
      --help)
        usage
        exit 0
        ;;
      *) usage_error "Unknown option \"$1\"." ;;
    esac
    shift
  done
  [ -z "$program" ] || [ -z "$package" ] || usage_error "Give either --program or --package."
}

# ----------------------------------------------------------------------------------------------------------------
# Checks before the first step. They change nothing.

check_mac() {
  [ "$(id -u)" = 0 ] || fail "This has to run as root (sudo)."
  for tool in codesign launchctl plutil pmset sw_vers sysctl ioreg ps top caffeinate; do
    command -v "$tool" >/dev/null || fail "$tool not found: this works only on a Mac."
  done
  [ "$(sysctl -n hw.optional.arm64 2>/dev/null)" = 1 ] || fail "This Mac has no Apple silicon."
  system=$(sw_vers -productVersion)
  [ "${system%%.*}" -ge 13 ] || fail "This Mac runs macOS $system, and the daemon needs macOS 13 or later."
}

# One step runs a program as the user, to see whether the daemon takes commands from it.
check_user() {
  case ${SUDO_UID:-0} in
    0 | *[!0-9]*) fail "Run this with sudo from your own account, not from a shell of root." ;;
  esac
}

is_loaded() {
  launchctl print "system/$label" >/dev/null 2>&1
}

# The removal at the end would take an earlier installation and its records with it.
check_not_installed() {
  found=
  ! is_loaded || found=" the running service $label,"
  for path in "$plist" "$folder" "$data" "$data.aside" "$logs" "$root/Applications/Brisko.app"; do
    [ ! -e "$path" ] || found="$found $path,"
  done
  [ -z "$found" ] ||
    fail "There is a brisko-daemon on this Mac already:${found%,}. This run would remove its settings and records at" \
      "the end. Remove it first, or use another Mac."
}

check_out() {
  [ -n "$out" ] || out=$PWD/brisko-first-light.tar
  if [ -e "$out" ] || [ -L "$out" ]; then fail "$out is there already. Move it, or choose another name with --out."; fi
  [ -d "$(dirname -- "$out")" ] || fail "There is no folder $(dirname -- "$out")."
}

# As the user, so that the files of the build belong to the user.
build() {
  command -v cmake >/dev/null || PATH=$PATH:/opt/homebrew/bin:/usr/local/bin
  command -v cmake >/dev/null ||
    fail "There is no program at $program, and no cmake to build it. docs/macos.md says what is needed."
  say "There is no program at $program. Building it takes about 3 min."
  confirmed || fail "Nothing was changed."
  (cd "$here/.." && sudo -u "#$SUDO_UID" env PATH="$PATH" cmake --preset macos &&
    sudo -u "#$SUDO_UID" env PATH="$PATH" cmake --build --preset macos) || fail "The build failed. Nothing was changed."
}

# What answers the questions that no tool of macOS answers. It is not part of the package.
find_facts() {
  facts=$here/../build/macos/brisko-first-light
  beside=$(dirname -- "${program:-$facts}")/brisko-first-light
  [ ! -x "$beside" ] || facts=$beside
}

find_programs() {
  if [ -n "$package" ]; then
    [ -f "$package" ] || fail "There is no package at $package."
    pkgutil --expand-full "$package" "$scratch/package" >/dev/null || fail "$package cannot be read."
    program=$scratch/package/brisko-daemon.pkg/Payload/brisko-daemon
  elif [ -z "$program" ]; then
    program=$here/../build/macos/brisko-daemon
    [ -f "$program" ] || build
  fi
  [ -f "$program" ] || fail "There is no program at $program."
  codesign --display --verbose=2 "$program" >"$scratch/signature" 2>&1 || true
  team=$(sed -n 's/^TeamIdentifier=//p' "$scratch/signature")
  [ "$team" != 'not set' ] || team=
}

# ----------------------------------------------------------------------------------------------------------------
# Questions and results

# read_answer QUESTION: sets answer. An end of the input counts as q.
read_answer() {
  printf '%s ' "$1"
  IFS= read -r answer || answer=q
  # Whoever reads the output of a run with prepared answers sees them too.
  [ -t 0 ] || say "$answer"
}

confirmed() {
  [ -z "$yes" ] || return 0
  read_answer 'Continue? [Y/n]'
  case $answer in
    '' | [Yy]*) return 0 ;;
    *) return 1 ;;
  esac
}

now() {
  date +%s
}

# result KIND POINT TEXT…
result() {
  kind=$1 point=$2
  shift 2
  took=$(($(now) - step_began))
  printf '%s\t%s\t%s\t%s\t%s\n' "$kind" "$step" "$point" "$took" "$*" >>"$results"
  say "  $kind: $point: $*"
}

# What is known now.
settled() {
  result settled "$@"
}

# What is as open as before, and why.
not_settled() {
  result 'not settled' "$@"
}

# What is known now, and not what the project expects.
surprising() {
  result surprising "$@"
}

# offered: whether the step is to be done. Ends the script if the user does not want to continue.
offered() {
  describe "$step"
  step_began=$(now)
  heading "$step: $title (about $(duration "$seconds"))"
  case $skipped in
    *" $step "*)
      not_settled "$step" "left out with --skip"
      return 1
      ;;
  esac
  [ -z "$yes" ] && [ "$step" != removal ] || return 0
  read_answer '  Do it? [Y/n/q]'
  case $answer in
    '' | [Yy]*) step_began=$(now) ;;
    [Qq]*)
      say "Ending here."
      exit 0
      ;;
    *)
      not_settled "$step" "left out"
      return 1
      ;;
  esac
}

# has_hands POINT: whether somebody is there to do or to see something.
has_hands() {
  [ -n "$yes" ] || return 0
  not_settled "$1" "needs somebody at the Mac"
  return 1
}

# ask_facts QUESTION…: has brisko-first-light answer it, in $scratch/answer. False if there is no such program or if it
# did not complete the answer.
ask_facts() {
  : >"$scratch/answer"
  [ -x "$facts" ] || return 1
  status=0
  "$facts" "$@" >"$scratch/answer" 2>&1 || status=$?
  keep "brisko-first-light $*" "$scratch/answer"
  return "$status"
}

# fact NAME: of the last answer.
fact() {
  sed -n "s/^$1: //p" "$scratch/answer" | head -n 1
}

# has_facts POINT: whether there is a program to ask.
has_facts() {
  [ ! -x "$facts" ] || return 0
  not_settled "$1" "needs brisko-first-light, which is built with the daemon"
  return 1
}

# keep TITLE FILE: what a step printed, for the file that is written at the end.
keep() {
  {
    printf '\n%s: %s\n' "$step" "$1"
    sed 's/^/    /' "$2"
  } >>"$evidence"
}

# ----------------------------------------------------------------------------------------------------------------
# The Mac and the daemon

# Waits without letting the Mac fall asleep.
rest() {
  caffeinate -i -t "$1"
}

# signed NUMBER: the registry prints negative numbers as 2^64 minus their amount, which is too large for the shell.
signed() {
  case $1 in
    18446744073*)
      amount=$((709551616 - 1${1#18446744073} + 1000000000))
      echo "-$amount"
      ;;
    *) echo "$1" ;;
  esac
}

# read_battery: sets percent, current (mA, negative while the battery drains) and external (Yes or No). The current is
# up to a minute old.
read_battery() {
  reading=$(ioreg -r -c AppleSmartBattery | awk '
    $1 == "\"CurrentCapacity\"" && $2 == "=" { percent = $3 }
    $1 == "\"InstantAmperage\"" && $2 == "=" { current = $3 }
    $1 == "\"ExternalConnected\"" && $2 == "=" { external = $3 }
    END { print percent "/" current "/" external }')
  percent=${reading%%/*} external=${reading##*/}
  current=${reading#*/}
  current=$(signed "${current%/*}")
}

# Conditions for await. Without a reading none of them is true.
charges() {
  [ -n "$current" ] && [ "$current" -gt 0 ]
}

charges_no_more() {
  [ -n "$current" ] && [ "$current" -le 0 ]
}

drains() {
  [ -n "$current" ] && [ "$current" -lt -100 ]
}

adapter_is() {
  [ "$external" = "$1" ]
}

# await SECONDS CONDITION…: reads the battery until the condition is true. Sets waited.
await() {
  patience=$1 wait_began=$(now)
  shift
  while :; do
    read_battery
    waited=$(($(now) - wait_began))
    if "$@"; then return 0; fi
    [ "$waited" -lt "$patience" ] || return 1
    rest 10
  done
}

# change WORD…: a command of brisko.
change() {
  "$client" "$@" >"$scratch/output" 2>&1 && return 0
  keep "brisko $*" "$scratch/output"
  return 1
}

status_value() {
  plutil -extract "$1" raw -o - "$data/status.json" 2>/dev/null || true
}

is_verified() {
  [ "$(status_value gateVerified)" = true ]
}

# needs_service POINT
needs_service() {
  [ -z "$running" ] || return 0
  not_settled "$1" "the service was not installed"
  return 1
}

# has_room POINT: whether the charge is such that the battery charges and that it can be held above a limit.
has_room() {
  needs_service "$1" || return 1
  read_battery
  if ! adapter_is Yes; then
    not_settled "$1" "no adapter is connected"
  elif [ "$gate_mode" = macOS ] && [ "${percent:-0}" -lt 81 ]; then
    not_settled "$1" "macOS's limit begins at 80 %, and the charge is ${percent:-unknown} %"
  elif [ "${percent:-0}" -lt 26 ] || [ "$percent" -gt 95 ]; then
    not_settled "$1" "the charge is ${percent:-unknown} %; it should be between 26 and 95 %"
  else
    # Five points are the widest step of macOS's limit too.
    low=$((percent - 5))
    [ "$gate_mode" != macOS ] || low=80
    return 0
  fi
  return 1
}

# ----------------------------------------------------------------------------------------------------------------
# The steps

step_system() {
  build=$(sw_vers -buildVersion)
  model=$(sysctl -n hw.model)
  has_facts 'version of macOS' || return 0
  ask_facts version || true
  major=$(fact macOS)
  if [ "$major" = "${system%%.*}" ]; then
    settled 'version of macOS' "$system ($build) on $model, which the daemon sees as $major"
  else
    surprising 'version of macOS' "the daemon sees macOS $system ($build) as ${major:-nothing}"
  fi
}

step_selftest() {
  status=0
  "$program" --selftest >"$scratch/output" 2>&1 || status=$?
  keep 'brisko-daemon --selftest' "$scratch/output"
  if [ "$status" -eq 0 ]; then
    settled 'self-test' "passed"
  else
    surprising 'self-test' "status $status: $(tail -n 1 "$scratch/output")"
  fi
}

# probe_value KEY: a text of the probe's object.
probe_value() {
  printf '%s\n' "$probe" | sed -n "s/.*\"$1\":\"\([^\"]*\)\".*/\1/p"
}

step_probe() {
  probe=$("$program" --probe --json 2>/dev/null) || true
  printf '%s\n' "$probe" >"$scratch/output"
  keep 'brisko-daemon --probe --json' "$scratch/output"
  case $probe in
    *'"supported":true'*) ;;
    *)
      surprising gate "none: $(probe_value message)"
      return 0
      ;;
  esac
  gate_mode=$(probe_value mode)
  cut=$(probe_value discharge)
  case $probe in
    *'"led":true'*) led=yes ;;
  esac
  found="$gate_mode, cut of the adapter: ${cut:-none}, light: ${led:-no}"
  # macOS 27 closed the keys.
  if [ "${system%%.*}" -ge 27 ] && [ "$gate_mode" != macOS ]; then
    surprising gate "$found; the keys should be closed on macOS $system"
  elif [ "${system%%.*}" -lt 27 ] && [ "$gate_mode" = macOS ]; then
    surprising gate "$found; the keys should be open on macOS $system"
  else
    settled gate "$found"
  fi
}

step_controller() {
  point="size of the controller's reply"
  has_facts "$point" || return 0
  ask_facts controller || true
  size=$(fact answered)
  case $size in
    '80 '*) settled "$point" "80 bytes" ;;
    *) surprising "$point" "${size:-none}, status $(fact status); 80 bytes were expected" ;;
  esac
}

step_limit_client() {
  point="client of macOS's limit"
  has_facts "$point" || return 0
  blocked='' silent=
  for caller in loop main thread; do
    # A call that takes longer than ten seconds is ended.
    ask_facts limit-client "$caller" || blocked="$blocked $caller"
    # The first one is the daemon's way.
    [ "$caller" != loop ] ||
      { class=$(fact class) supported=$(fact supported) limit=$(fact limit); }
    unanswered=$(sed -n 's/: no answer.*//p' "$scratch/answer" | tr '\n' ' ')
    [ -z "$unanswered" ] || silent="$silent; $caller: no answer to ${unanswered% }"
  done
  case $class in
    no*)
      settled "$point" "macOS $system has none"
      return 0
      ;;
  esac
  case $blocked in
    '') ;;
    ' main thread') surprising "$point" "answers only while the main thread's run loop runs" ;;
    *) surprising "$point" "does not return when called from:$blocked" ;;
  esac
  if [ -n "$silent" ]; then
    surprising "$point" "${silent#; }"
  elif [ -z "$blocked" ]; then
    settled "$point" "answers root on every thread; supported: ${supported:-?}, limit: ${limit:-?}"
  fi
}

step_watches() {
  has_facts 'watches on removed files' || return 0
  mkdir "$scratch/watched"
  ask_facts watches "$scratch/watched" || true
  file=$(fact file) bundle=$(fact bundle)
  case $file$bundle in
    'reported ('*'reported ('*) settled 'watches on removed files' "file: $file, app: $bundle" ;;
    *) surprising 'watches on removed files' "file: ${file:-no answer}, app: ${bundle:-no answer}" ;;
  esac
}

step_install() {
  if [ -z "$gate_mode" ]; then
    not_settled service "the probe found no way to control the charge"
    return 0
  fi
  [ -n "$team" ] ||
    say "  No team has signed these programs: until they are removed, every process on this Mac can command the daemon."
  # From here on there is something to give back.
  say "$label" >"$marker"
  installed=yes
  if [ -n "$package" ]; then
    installer -pkg "$package" -target / || installation_failed || return 0
  else
    sh "$here/install-service.sh" --program "$program" --yes || installation_failed || return 0
  fi
  running=yes
  settled service "installed and running after $(($(now) - step_began)) s"
  measure_footprint first
  footprint_began=$(now)
}

installation_failed() {
  surprising service "the installation failed"
  return 1
}

# As the user, because brisko run by root writes the settings itself if the daemon does not answer.
command_as_user() {
  status=0
  # The shell of root opens the file.
  # shellcheck disable=SC2024
  sudo -u "#$SUDO_UID" "$@" >"$scratch/output" 2>&1 || status=$?
  keep "$*, as the user" "$scratch/output"
}

step_clients() {
  needs_service 'own client' || return 0
  command_as_user "$client" limit 79
  case $status in
    0) settled 'own client' "let in" ;;
    4) surprising 'own client' "turned away" ;;
    *) surprising 'own client' "brisko ended with status $status" ;;
  esac
  mkdir "$scratch/foreign"
  cat "$client" >"$scratch/foreign/brisko"
  chmod 755 "$scratch" "$scratch/foreign" "$scratch/foreign/brisko"
  # Anybody can sign with this name, but not with the team.
  codesign --force --sign - --identifier com.brisko.Brisko "$scratch/foreign/brisko" >"$scratch/output" 2>&1 || {
    not_settled 'foreign client' "could not sign one"
    return 0
  }
  command_as_user "$scratch/foreign/brisko" limit 78
  case $status:$team in
    0:) not_settled 'foreign client' "let in, as without a team every program is; needs programs signed by a team" ;;
    4:) surprising 'foreign client' "turned away, although no team signed the daemon" ;;
    0:*) surprising 'foreign client' "let in" ;;
    4:*) settled 'foreign client' "turned away" ;;
    *) surprising 'foreign client' "brisko ended with status $status" ;;
  esac
}

step_hold() {
  has_room hold || return 0
  change limit 100 || { not_settled hold "the limit could not be set"; return 0; }
  if ! await 120 charges; then
    not_settled hold "the battery did not charge before, at $percent % (${current:-no} mA)"
    return 0
  fi
  before=$current
  change limit "$low" || { not_settled hold "the limit could not be set"; return 0; }
  if await 120 charges_no_more; then
    settled hold "$before mA before, $current mA at most $waited s after the limit was set"
  else
    surprising hold "still ${current:-no} mA 120 s after the limit was set"
  fi
  # The daemon verifies at its next tick.
  if await 30 is_verified; then
    settled 'verification by the daemon' "the daemon has seen it too"
  else
    surprising 'verification by the daemon' "gateVerified: $(status_value gateVerified)"
  fi
}

step_discharge() {
  has_room discharge || return 0
  case $cut in
    '' | macOS)
      not_settled discharge "this Mac offers no key for it"
      return 0
      ;;
  esac
  if ! change limit "$low" || ! change set discharge=on; then
    not_settled discharge "it could not be switched on"
    return 0
  fi
  cut_began=$(now)
  if await 120 drains; then
    settled discharge "$current mA at most $waited s after it was switched on"
    supply=$(pmset -g batt | sed -n "s/^Now drawing from '\(.*\)'.*/\1/p")
    if adapter_is No; then
      settled 'adapter flag while it is cut off' "cleared; macOS shows ${supply:-nothing}"
    else
      settled 'adapter flag while it is cut off' "kept; macOS shows ${supply:-nothing}"
    fi
    left=$((cut_began + 60 - $(now)))
    [ "$left" -le 0 ] || rest "$left"
  else
    surprising discharge "still ${current:-no} mA after 120 s"
  fi
  change set discharge=off || true
  if await 60 adapter_is Yes; then
    settled 'adapter after the cut' "connected again after at most $waited s"
  else
    surprising 'adapter after the cut' "macOS still shows none after 60 s"
  fi
}

# see STATE COLOUR: asks for the light, and notes in $wrong if it is another one.
see() {
  rest 5
  read_answer "  The light of the connector: [g]reen, [b]linking green, [o]range, [d]ark?"
  case $answer in
    [Gg]*) seen=green ;;
    [Bb]*) seen=blinking ;;
    [Oo]*) seen=orange ;;
    [Dd]*) seen=dark ;;
    *) seen=unknown ;;
  esac
  [ "$seen" = "$2" ] || wrong="$wrong, $1: $seen instead of $2"
}

step_light() {
  if [ -z "$led" ]; then
    settled light "this Mac has none that can be driven"
    return 0
  fi
  has_hands light && has_room light || return 0
  wrong=
  change limit "$low" || true
  see held green
  change limit 100 || true
  see 'charging without a limit' orange
  # macOS's own limit takes only these.
  high=$(((percent + 9) / 5 * 5))
  if [ "$high" -le 95 ]; then
    change limit "$high" || true
    see 'charging to the limit' blinking
  fi
  if [ -n "$wrong" ]; then
    surprising light "${wrong#, }"
  else
    settled light "as it should be: green, orange, blinking"
  fi
}

# measure_footprint NAME: the process of the daemon, its memory (kB), threads and idle wake-ups since its start ("-" if
# they are unknown), in $scratch/NAME.
measure_footprint() {
  process=$(launchctl print "system/$label" 2>/dev/null | sed -n 's/^[[:blank:]]*pid = //p' | head -n 1)
  [ -n "$process" ] || return 0
  memory=$(ps -o rss= -p "$process" | tr -d ' ')
  # A heading, then a line for each thread.
  threads=$(($(ps -M -p "$process" | grep -c .) - 1))
  # top may append a mark to the number.
  wakes=$(top -l 1 -pid "$process" -stats pid,idlew 2>/dev/null |
    awk -v process="$process" '$1 == process { sub(/[^0-9].*/, "", $2); print $2 }' | tail -n 1)
  echo "$process ${memory:--} $threads ${wakes:--}" >"$scratch/$1"
  keep "process, memory, threads and wake-ups, $1 measurement" "$scratch/$1"
}

step_footprint() {
  needs_service footprint || return 0
  left=$((footprint_began + 300 - $(now)))
  [ "$left" -le 0 ] || rest "$left"
  measure_footprint second
  read -r first_process _ _ first_wakes <"$scratch/first" || first_process='' first_wakes=-
  read -r second_process memory threads wakes <"$scratch/second" || second_process=''
  if [ -z "$first_process" ] || [ -z "$second_process" ]; then
    not_settled footprint "launchd did not show the process"
    return 0
  elif [ "$first_process" != "$second_process" ]; then
    surprising footprint "the daemon ended and was started again"
    return 0
  fi
  lasted=$(($(now) - footprint_began))
  if [ "$memory" = - ]; then
    not_settled footprint "ps did not show the process"
  elif [ "$memory" -gt 30000 ] || [ "$threads" -gt 12 ]; then
    surprising footprint "$memory kB, $threads threads; at most 30000 kB and 12 threads were expected"
  else
    settled footprint "$memory kB, $threads threads"
  fi
  case $first_wakes$wakes in
    *-*) not_settled wake-ups "top did not show them" ;;
    *)
      count=$((wakes - first_wakes))
      # The blinking light alone needs two a second.
      if [ "$count" -gt $((lasted * 3)) ]; then
        surprising wake-ups "$count in $lasted s; at most three a second were expected"
      else
        settled wake-ups "$count in $lasted s"
      fi
      ;;
  esac
}

starts_logged() {
  grep -c 'brisko-daemon started' "$logs/daemon.log" 2>/dev/null || true
}

has_restarted() {
  [ "$(starts_logged)" -gt "$starts" ]
}

step_signal() {
  has_facts 'SIGTERM under load' && has_room 'SIGTERM under load' || return 0
  if [ "$gate_mode" = macOS ] && [ "$charging_before" = stopped ]; then
    not_settled 'SIGTERM under load' "a limit of macOS was set before, and it cannot be told from the daemon's"
    return 0
  fi
  change limit "$low" || true
  [ -z "$cut" ] || [ "$cut" = macOS ] || change set discharge=on || true
  rest 15
  starts=$(starts_logged)
  start_load
  ask_facts given-back launchctl kill SIGTERM "system/$label" || true
  stop_helpers
  took_back=$(fact 'given back')
  if [ "$(fact before)" != held ]; then
    not_settled 'SIGTERM under load' "nothing was held before"
  elif [ -z "$took_back" ]; then
    surprising 'SIGTERM under load' "not given back within 30 s"
  elif [ "${took_back% ms}" -gt 5000 ]; then
    surprising 'SIGTERM under load' "given back after $took_back; 5 s at most was expected"
  else
    settled 'SIGTERM under load' "charge and adapter given back after $took_back"
  fi
  if await 60 has_restarted; then
    settled 'start by launchd' "again at most $waited s after that"
  else
    surprising 'start by launchd' "not again within 60 s"
  fi
  change set discharge=off || true
}

# A busy loop for each core. stop_helpers ends them.
start_load() {
  cores=$(sysctl -n hw.ncpu)
  while [ "$cores" -gt 0 ]; do
    yes >/dev/null &
    helpers="$helpers $!"
    cores=$((cores - 1))
  done
}

stop_helpers() {
  for helper in $helpers; do
    kill -TERM "$helper" 2>/dev/null || true
    wait "$helper" 2>/dev/null || true
  done
  helpers=
}

# schedule_wake TIME
schedule_wake() {
  wake=$(date -r "$1" '+%m/%d/%y %H:%M:%S')
  say "wake $wake" >>"$marker"
  pmset schedule wake "$wake" "$wake_owner"
}

cancel_wakes() {
  [ -f "$marker" ] || return 0
  sed -n 's/^wake //p' "$marker" >"$scratch/scheduled"
  while IFS= read -r wake; do
    # One that has passed is gone already.
    pmset schedule cancel wake "$wake" "$wake_owner" >/dev/null 2>&1 || true
  done <"$scratch/scheduled"
}

# sleep_until TIME: with a scheduled wake then. Afterwards $scratch/messages contains what a process heard, and
# $scratch/wakes a line for each sleep and wake: the seconds since now, Sleep, Wake or DarkWake, and the supply.
sleep_until() {
  sleep_began=$(now)
  schedule_wake "$1" || return 1
  : >"$scratch/messages"
  if [ -x "$facts" ]; then
    "$facts" power >"$scratch/messages" 2>&1 &
    helpers="$helpers $!"
    sleep 2
  fi
  pmset sleepnow >/dev/null
  # No caffeinate here. The Mac may sleep, wake and sleep again meanwhile.
  while [ "$(now)" -lt $(($1 + 75)) ]; do sleep 10; done
  stop_helpers
  cancel_wakes
  pmset -g log | awk -v from="$(date -r "$sleep_began" '+%Y-%m-%d %H:%M:%S')" '
    function seconds(text, part) { split(text, part, ":"); return part[1] * 3600 + part[2] * 60 + part[3] }
    BEGIN { split(from, start, " ") }
    ($1 " " $2) >= from && ($4 == "Sleep" || $4 == "Wake" || $4 == "DarkWake") && $5 != "Requests" {
      after = seconds($2) - seconds(start[2])
      if (after < 0) after += 86400
      supply = "-"
      if (index($0, "Using AC")) supply = "AC"
      if (index($0, "Using B")) supply = "battery"
      print after, $4, supply
    }' >"$scratch/wakes"
  keep 'pmset -g log (seconds, event, supply)' "$scratch/wakes"
  keep 'messages (seconds, message, capabilities)' "$scratch/messages"
}

# first_wake FROM: sets wake_at and wake_kind of the first wake from that second on, and wake_lasted ("-" if no sleep
# followed). A dark wake may become a full one.
first_wake() {
  found=$(awk -v from="$1" '
    kind == "" && $2 != "Sleep" && $1 >= from { at = $1; kind = $2; next }
    kind == "DarkWake" && $2 == "Wake" { kind = "DarkWake, a full one after " ($1 - at) " s, together"; next }
    kind != "" && $2 == "Sleep" { print at, $1 - at, kind; done = 1; exit }
    END { if (!done && kind != "") { sub(/, together/, "", kind); print at, "-", kind } }' "$scratch/wakes")
  [ -n "$found" ] || return 1
  wake_at=${found%% *} found=${found#* }
  wake_lasted=${found%% *} wake_kind=${found#* }
}

# described_wake: "DarkWake for 45 s".
described_wake() {
  if [ "$wake_lasted" = - ]; then echo "$wake_kind"; else echo "$wake_kind for $wake_lasted s"; fi
}

# heard: the messages, each with the capabilities, on one line.
heard() {
  sed -n -e '/listening/d' -e '/changed/d' -e '/ended/d' -e 's/^[^:]*: \(.*\), capabilities \(.*\)/\1 (\2)/p' \
    "$scratch/messages" | tr '\n' ';' | sed 's/;$//; s/;/, /g'
}

has_slept() {
  grep -q ' Sleep ' "$scratch/wakes"
}

step_sleep() {
  point='scheduled wake'
  needs_service "$point" || return 0
  if [ -z "$yes" ]; then
    read_answer "  With the lid closed? Then close it when you have answered, and open it again in 5 min. [y/N]"
    case $answer in
      [Yy]*) rest 20 ;;
    esac
  fi
  due=$(($(now) + 180))
  if ! sleep_until "$due"; then
    surprising "$point" "macOS refused to schedule one"
    return 0
  fi
  planned=$((due - sleep_began))
  if ! has_slept; then
    surprising "$point" "the Mac did not sleep"
  elif ! first_wake $((planned - 5)); then
    surprising "$point" "the Mac had not woken 75 s after it"
  elif [ "$wake_at" -gt $((planned + 60)) ]; then
    surprising "$point" "$(described_wake), only $((wake_at - planned)) s after its time"
  else
    settled "$point" "$(described_wake), $((wake_at - planned)) s after its time"
  fi
  [ -x "$facts" ] || return 0
  messages=$(heard)
  case $messages in
    *WillSleep*) settled 'messages of sleep and wake' "$messages" ;;
    *) surprising 'messages of sleep and wake' "no WillSleep: ${messages:-nothing heard}" ;;
  esac
}

step_plug_asleep() {
  point='plugging in asleep'
  has_hands "$point" && has_room "$point" || return 0
  change limit "$low" || true
  say "  Unplug the adapter now."
  tries_left=60
  until ! adapter_is Yes || [ "$tries_left" -eq 0 ]; do
    tries_left=$((tries_left - 1))
    rest 2
    read_battery
  done
  if adapter_is Yes; then
    not_settled "$point" "the adapter was not unplugged"
    return 0
  fi
  say "  The Mac falls asleep now. Plug the adapter in a minute later, without touching anything else."
  due=$(($(now) + 150))
  if ! sleep_until "$due"; then
    surprising "$point" "macOS refused to schedule a wake"
    return 0
  fi
  if ! has_slept; then
    not_settled "$point" "the Mac did not sleep"
  elif first_wake 1 && [ "$wake_at" -lt $((due - sleep_began - 5)) ]; then
    settled "$point" "$(described_wake), $wake_at s after the Mac fell asleep"
  else
    settled "$point" "does not wake the Mac"
  fi
  has_facts 'hold after plugging in asleep' || return 0
  ask_facts keys || true
  if [ "$(fact charging)" = stopped ]; then
    settled 'hold after plugging in asleep' "charging is stopped"
  else
    surprising 'hold after plugging in asleep' "charging is $(fact charging)"
  fi
}

step_removal() {
  give_back
}

# ----------------------------------------------------------------------------------------------------------------
# Giving back. All of this can be done again at any time, also after an interruption.

# The one place that calls brisko report. It has to run before the removal.
collect_report() {
  [ -x "$client" ] || return 0
  "$client" report --yes --output "$scratch/report.tar" >"$scratch/output" 2>&1 || rm -f "$scratch/report.tar"
}

# left_over: what of the installation is still there, for people.
left_over() {
  for path in "$plist" "$rotation" "$folder" "$data" "$data.aside" "$logs" "$root/usr/local/bin/brisko"; do
    [ ! -e "$path" ] && [ ! -L "$path" ] || printf '%s, ' "$path"
  done
  ! is_loaded || printf 'the job %s, ' "$label"
  ! pkgutil --pkg-info "$label" >/dev/null 2>&1 || printf 'the receipt of the package, '
  ! pmset -g sched 2>/dev/null | grep -q 'com\.brisko\.' || printf 'a scheduled wake, '
}

# keys_are_free: by the last answer. Where macOS's own limit stops charging, one may have been set before.
keys_are_free() {
  [ "$(fact adapter)" = connected ] || return 1
  case $(fact mode) in
    macOS) [ -z "$charging_before" ] || [ "$(fact charging)" = "$charging_before" ] ;;
    *) [ "$(fact charging)" = allowed ] ;;
  esac
}

# check_keys: whether the charge and the adapter are given back. The keys show it at once, the battery within a minute.
check_keys() {
  if ask_facts keys; then
    found="charging is $(fact charging), the adapter is $(fact adapter)"
    keys_are_free
  elif [ "$adapter_before" = Yes ]; then
    await 90 adapter_is Yes || { found="macOS shows no adapter"; return 1; }
    if [ "${percent:-0}" -lt 95 ]; then
      await 120 charges || { found="the battery does not charge"; return 1; }
    fi
    found="the adapter is connected, ${current:-no} mA"
  else
    found="no adapter was connected, so only the removal was checked"
  fi
}

# give_back: sets given_back to "yes" when everything is given back and checked.
give_back() {
  stop_helpers
  cancel_wakes
  if [ -n "$installed" ]; then
    collect_report
    sh "$here/uninstall-service.sh" || true
  fi
  given_back=yes
  left=$(left_over)
  if [ -z "$left" ]; then
    settled removal "nothing is left"
  else
    surprising removal "left: ${left%, }"
    given_back=
  fi
  if check_keys; then
    settled 'charge and adapter' "$found"
  else
    surprising 'charge and adapter' "$found"
    given_back=
  fi
  tried=yes
  [ -n "$given_back" ] || return 0
  installed=
  rm -f "$marker"
}

# finish_earlier_run: after a run that had no time to give back, such as one that a power failure ended.
finish_earlier_run() {
  [ -f "$marker" ] || return 0
  say "An earlier run was cut off. Giving back what it left."
  installed=yes step=removal step_began=$(now) adapter_before=
  give_back
  [ -n "$given_back" ] || fail "Restart the Mac, then run this again with --give-back."
}

# ----------------------------------------------------------------------------------------------------------------
# The table and the file

write_table() {
  awk -F '\t' '
    { if (length($3) > width) width = length($3); line[NR] = $0; count[$1]++ }
    END {
      row = "%-11s  %-" width "s  %5s  %s\n"
      printf row, "result", "point", "after", "what was found"
      for (n = 1; n <= NR; n++) {
        split(line[n], part, "\t")
        printf row, part[1], part[3], part[4] " s", part[5]
      }
      printf "%d settled, %d not settled, %d surprising\n", count["settled"], count["not settled"], count["surprising"]
    }' "$results"
}

write_json() {
  printf '{"format":1,"daemonVersion":"%s","macOS":"%s","build":"%s","model":"%s","startedAt":%s,"endedAt":%s,' \
    "$version" "$system" "$build" "$model" "$began" "$(now)"
  if [ -n "$given_back" ]; then printf '"givenBack":true,'; else printf '"givenBack":false,'; fi
  awk -F '\t' '
    function quoted(text) { gsub(/\\/, "\\\\", text); gsub(/"/, "\\\"", text); return "\"" text "\"" }
    BEGIN { printf "\"points\":[" }
    {
      printf "%s{\"step\":%s,\"point\":%s,\"result\":%s,\"seconds\":%d,\"text\":%s}", (NR > 1 ? "," : ""), quoted($2),
        quoted($3), quoted($1), $4, quoted($5)
    }
    END { print "]}" }' "$results"
}

# The members of brisko report, if it could be made, and two more.
write_file() {
  mkdir -p "$scratch/file/brisko-report"
  write_json >"$scratch/file/brisko-report/first-light.json"
  {
    write_table
    cat "$evidence"
  } >"$scratch/file/brisko-report/first-light.txt"
  # Without the extended attributes that macOS would add as files of their own.
  COPYFILE_DISABLE=1
  export COPYFILE_DISABLE
  mode=-cf
  if [ -s "$scratch/report.tar" ]; then
    mode=-rf
    cat "$scratch/report.tar" >"$scratch/all.tar"
  fi
  # What reads it takes plain files only, and no folder.
  tar --format=ustar "$mode" "$scratch/all.tar" -C "$scratch/file" brisko-report/first-light.json \
    brisko-report/first-light.txt
  # A name that somebody else has made meanwhile is not written to.
  (set -C && cat "$scratch/all.tar" >"$out")
}

# shellcheck disable=SC2317 # the trap calls it
clean_up() {
  ending=$?
  trap - EXIT
  # Another interruption must not stop this. What runs from here on inherits that, but a daemon that the uninstaller
  # runs has to hear SIGTERM.
  trap '' HUP INT
  trap : TERM
  set +e
  if [ -n "$began" ]; then
    if [ -z "$tried" ]; then
      step=removal step_began=$(now)
      heading "removal: giving everything back"
      give_back
    fi
    say
    write_table
    if write_file; then
      heading "Written to $out. It contains no serial numbers and no names. Have a look, then send it to us."
    fi
    if [ -z "$given_back" ]; then
      say "Not everything was given back. Restart the Mac, then run: sudo $0 --give-back" >&2
      ending=1
    fi
  fi
  [ -z "$scratch" ] || rm -rf "$scratch"
  exit "$ending"
}

run_step() {
  offered || return 0
  case $step in
    limit-client) step_limit_client ;;
    plug-asleep) step_plug_asleep ;;
    *) "step_$step" ;;
  esac
}

# whole_time: the seconds that all steps take that are not left out.
whole_time() {
  sum=0
  for step in $all_steps; do
    case $skipped in
      *" $step "*) ;;
      *) describe "$step" && sum=$((sum + seconds)) ;;
    esac
  done
  echo "$sum"
}

main() {
  here=$(CDPATH='' cd -- "$(dirname -- "$0")" && pwd)
  scratch='' began='' installed='' running='' given_back='' helpers='' gate_mode='' cut='' led='' build='' model=''
  version='' facts='' tried='' adapter_before='' charging_before=''
  step=start
  read_arguments "$@"
  check_mac
  scratch=$(mktemp -d "$root/tmp/brisko-first-light.XXXXXX")
  trap clean_up EXIT
  trap 'exit 1' HUP INT TERM
  results=$scratch/results evidence=$scratch/evidence
  : >"$results"
  : >"$evidence"
  if [ -n "$only_give_back" ] && [ ! -f "$marker" ]; then
    say "There is nothing to give back."
    exit 0
  fi
  find_facts
  finish_earlier_run
  [ -z "$only_give_back" ] || exit 0
  check_user
  check_not_installed
  check_out
  find_programs
  find_facts
  version=$("$program" --version 2>/dev/null) || version=
  read_battery
  adapter_before=$external
  ask_facts keys || true
  charging_before=$(fact charging)
  : >"$results"
  given_back='' tried='' began=$(now)
  say "First run of brisko-daemon ${version:-?} on macOS $system, for about $(duration "$(whole_time)")." \
    "Everything is given back at the end, even if you interrupt it with Ctrl-C."
  # The list is separated by spaces.
  for step in $all_steps; do run_step; done
}

main "$@"
