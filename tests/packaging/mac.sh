# To be sourced by the scripts of this folder: a folder that represents the volume of a Mac, with fakes of its tools.
# shellcheck shell=sh

here=$(CDPATH='' cd -- "$(dirname -- "$0")" && pwd)
sources=$(CDPATH='' cd -- "$here/../.." && pwd)
version=$(sed -n 's/.*daemonVersion = "\(.*\)";/\1/p' "$sources/src/base/process_flags.h")
FAKES=$here/fakes
export FAKES

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM

# use_mac FOLDER: the Mac that the next commands are about.
use_mac() {
  mac=$1
  BRISKO_ROOT=$mac/volume
  FAKE_MAC=$mac/mac
  export BRISKO_ROOT FAKE_MAC
}

# new_mac FOLDER [LAYOUT…]: a Mac as it is before anything is installed, or with what volumes/LAYOUT contains. The later
# layouts change the first.
new_mac() {
  use_mac "$1"
  mkdir -p "$BRISKO_ROOT/Applications" "$BRISKO_ROOT/Library/LaunchDaemons" "$BRISKO_ROOT/Library/Logs" \
    "$BRISKO_ROOT/Library/Application Support" "$BRISKO_ROOT/etc/newsyslog.d" "$BRISKO_ROOT/usr/local" \
    "$BRISKO_ROOT/tmp" "$BRISKO_ROOT/var/db/receipts" "$FAKE_MAC"
  shift
  for layout; do cp -R "$here/volumes/$layout/." "$BRISKO_ROOT"; done
  job=$BRISKO_ROOT/Library/LaunchDaemons/com.brisko.daemon.plist
  if [ -e "$job" ]; then
    # The daemon of that volume runs.
    cp "$job" "$FAKE_MAC/job"
    echo held >"$FAKE_MAC/charge"
  fi
}

# on_mac COMMAND…: with the tools of the Mac, in a process group of its own, which FAKE_STOP_AT ends. A test that runs in
# the background ignores SIGINT, and a shell cannot undo that.
FAKE_PATH=$FAKES
export FAKE_PATH
on_mac() {
  PATH=$FAKE_PATH /usr/bin/setsid --wait /usr/bin/env --default-signal=INT /bin/sh -c 'SCRIPT_PID=$$; export SCRIPT_PID; exec "$@"' sh "$@"
}

install() {
  on_mac sh "$sources/packaging/install-service.sh" --program "$FAKES/brisko-daemon" "$@"
}

uninstall() {
  on_mac sh "$sources/packaging/uninstall-service.sh" "$@"
}

# Only the first of several runs needs to have the options of its tools checked, which takes most of its time.
mkdir "$work/quick"
find "$FAKES" -type f ! -name bsd-tool -exec ln -s '{}' "$work/quick" \;
# shellcheck disable=SC2034 # for FAKE_PATH
quick_path=$work/quick:/usr/bin:/bin

# The files of the volume with their modes, without the temporary folder.
listing() {
  find "$BRISKO_ROOT" -path "$BRISKO_ROOT/tmp" -prune -o -printf '%P %m %l\n' | LC_ALL=C sort
}

charge() {
  cat "$FAKE_MAC/charge" 2>/dev/null || echo free
}

# make_package: at $package, of the fakes of the programs.
make_package() {
  mkdir -p "$work/build"
  cp "$FAKES/brisko-daemon" "$FAKES/brisko" "$FAKES/brisko-lab" "$work/build"
  new_mac "$work/builder"
  package=$work/package/brisko-daemon-$version.pkg
  PATH=$FAKES:/usr/bin:/bin make --no-print-directory -C "$sources/packaging" package \
    PROGRAM="$work/build/brisko-daemon" OUT="$work/package" INSTALLER_IDENTITY='Developer ID Installer: Some One' \
    >"$work/build/output" 2>&1 || {
    cat "$work/build/output"
    exit 1
  }
}

install_package() {
  on_mac installer -pkg "$package" -target /
}

# first_mac WORD…: tries the fakes of the programs on this Mac; "--program" can be replaced by "--package".
first_mac() {
  [ "${1:-}" = --package ] || set -- --program "$FAKES/brisko-daemon" "$@"
  SUDO_UID=501 on_mac sh "$sources/packaging/first-mac.sh" --out "$mac/first-light.tar" "$@"
}

# answers LIGHT LID: what somebody at a Mac types who does every step: three letters for the colours of the light, and y
# if the lid is closed for the sleep.
answers() {
  # Up to the light; its step and colours; the footprint, the signal, the sleep and its lid; plugging in.
  printf '\n\n\n\n\n\n\n\n\n\n\n'
  printf '%s\n' "$1" | tr '/' '\n'
  printf '\n\n\n%s\n\n' "$2"
}
