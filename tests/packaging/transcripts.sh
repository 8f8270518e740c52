#!/bin/sh
# Writes docs/installer-transcripts.md: what the installer and the uninstaller print in each case, run on a folder that
# represents a Mac. With --check it changes nothing, shows what is out of date and fails if there is any.
# shellcheck disable=SC2016,SC2119 # the marks of a document; install without options
set -eu
. "$(dirname -- "$0")/mac.sh"
document=$sources/docs/installer-transcripts.md
program=$FAKES/brisko-daemon

# The paths as they would be on a Mac.
shown() {
  sed -e "s|/tmp/brisko-install\.[A-Za-z0-9]*|/tmp/brisko-install.XXXXXX|g" -e "s|$FAKES/|build/macos/|g" -e "s|$BRISKO_ROOT||g" -e "s|$package|brisko-daemon-VERSION.pkg|g" \
    -e "s|[^ ]*/packaging/|packaging/|g" -e "s|$version|VERSION|g"
}

# run SHOWN COMMAND…
run() {
  echo "    \$ $1"
  shift
  status=0
  "$@" >"$work/output" 2>&1 </dev/null || status=$?
  shown <"$work/output" | sed -E "${left_out:+/$left_out/d}" | sed 's/^/    /; s/ *$//'
  [ "$status" -eq 0 ] || echo "    exit status $status"
  echo
}

# with VARIABLE=VALUE… COMMAND…: as env does, for a function.
with() {
  (
    while :; do
      case $1 in
        *=*) export "${1?}"; shift ;;
        *) break ;;
      esac
    done
    "$@"
  )
}

# refuses TITLE VARIABLE=VALUE…: an installation on a new Mac.
refuses() {
  echo "### $1"
  echo
  shift
  new_mac "$work/mac-$((macs = macs + 1))"
  with "$@" run 'sudo packaging/install-service.sh' install
}

package_refuses() {
  echo "### $1, to the package"
  echo
  shift
  new_mac "$work/mac-$((macs = macs + 1))"
  with "$@" run 'sudo installer -pkg brisko-daemon-VERSION.pkg -target /' install_package
}

write_document() {
  macs=0 left_out=
  cat <<'END'
# What the installer prints

These are the outputs of the installer, the package and the uninstaller in each case. The scripts ran on a folder that
represents a Mac, with fakes of its tools, not on a Mac. `tests/packaging/transcripts.sh` writes this page, and a test
compares it. [macos.md](macos.md) explains what the scripts do.

## Installation

END
  new_mac "$work/mac-installation"
  run 'sudo packaging/install-service.sh' install
  FAKE_PATH=$quick_path
  echo '## Again, as an upgrade'
  echo
  run 'sudo packaging/install-service.sh' install
  echo '## Removal'
  echo
  run 'sudo /Library/Brisko/uninstall-service.sh --keep-data' uninstall --keep-data
  run 'sudo packaging/uninstall-service.sh' uninstall
  run 'sudo packaging/uninstall-service.sh' uninstall

  echo '## The package'
  echo
  new_mac "$work/mac-package"
  run 'sudo installer -pkg brisko-daemon-VERSION.pkg -target /' install_package
  run 'pkgutil --files com.brisko.daemon' on_mac pkgutil --files com.brisko.daemon
  run 'sudo /Library/Brisko/uninstall-service.sh' uninstall

  echo '## Upgrades of earlier layouts'
  echo
  echo 'From a version that installed no `brisko` and no settings, with an app:'
  echo
  new_mac "$work/mac-first" first app
  run 'sudo packaging/install-service.sh' install
  echo 'From a job to which `--limit 70` and `--lower 60` were added by hand:'
  echo
  new_mac "$work/mac-edited" first edited-job
  run 'sudo packaging/install-service.sh' install
  echo 'From the daemon in an app:'
  echo
  new_mac "$work/mac-bundled" bundled
  run 'sudo packaging/install-service.sh' install
  echo 'On a Mac on which an upgrade of macOS has closed the keys, without a limit of its own:'
  echo
  new_mac "$work/mac-locked" first
  with "FAKE_PROBE=$locked" run 'sudo packaging/install-service.sh' install

  echo '## Refusals'
  echo
  echo 'Nothing has been changed after these.'
  echo
  refuses 'Not root' FAKE_USER=501
  refuses 'Another processor' FAKE_ARM64=no
  package_refuses 'Another processor' FAKE_ARM64=no
  refuses 'An older macOS' FAKE_MACOS=12.7.6
  package_refuses 'An older macOS' FAKE_MACOS=12.7.6
  refuses 'A virtual machine' FAKE_VM=1
  package_refuses 'A virtual machine' FAKE_VM=1
  refuses 'No battery' FAKE_BATTERY=No
  package_refuses 'No battery' FAKE_BATTERY=No
  refuses 'Closed keys' "FAKE_PROBE=$locked"
  package_refuses 'Closed keys' "FAKE_PROBE=$locked"
  refuses 'An unknown kind of Mac' 'FAKE_PROBE={"detail":"CHTE: none","message":"This Mac offers no known way to stop charging.","reason":"none","supported":false}'
  refuses 'No answer to the probe' 'FAKE_PROBE=Could not open AppleSMC.'
  refuses 'No signature' FAKE_SIGNER=unsigned
  refuses 'No team' 'FAKE_SIGNER=ad hoc'
  echo 'With `--yes` it is installed; in a terminal it asks.'
  echo
  refuses 'Two teams' FAKE_CLIENT_SIGNER=OTHER12345
  refuses 'Another name in the signature' FAKE_CLIENT_NAME=brisko
  echo '### A downgrade'
  echo
  new_mac "$work/mac-newer" first
  sed 's/^version=.*/version=9.0.0/' "$program" >"$BRISKO_ROOT/Library/Brisko/brisko-daemon"
  run 'sudo packaging/install-service.sh' install
  echo '### A downgrade, to the package'
  echo
  printf 'version: 9.0.0\n' >"$BRISKO_ROOT/var/db/receipts/com.brisko.daemon.plist"
  run 'sudo installer -pkg brisko-daemon-VERSION.pkg -target /' install_package
  echo '### A standard error that is no plain file'
  echo
  new_mac "$work/mac-link"
  mkdir "$BRISKO_ROOT/Library/Logs/Brisko"
  ln -s /etc/sudoers "$BRISKO_ROOT/Library/Logs/Brisko/daemon.err.log"
  run 'sudo packaging/install-service.sh' install
  echo '### A folder that others can change'
  echo
  new_mac "$work/mac-open"
  chmod 777 "$BRISKO_ROOT/Library"
  run 'sudo packaging/install-service.sh' install
  echo '### No such app'
  echo
  new_mac "$work/mac-no-app"
  run 'sudo packaging/install-service.sh --app /Applications/Other.app' install --app /Applications/Other.app

  echo '## Installed, but not started'
  echo
  echo 'The lines about what was installed are left out here.'
  echo
  left_out='^(Installed|Linked) '
  refuses 'Switched off in Login Items' FAKE_REFUSALS=9 'FAKE_REFUSAL=5: Input/output error'
  refuses 'Rejected for another reason' FAKE_REFUSALS=9
  refuses 'Status 1' FAKE_END=1
  refuses 'Status 2' FAKE_END=2
  refuses 'Status 78' 'FAKE_END=78: EX_CONFIG'
  refuses 'Killed' 'FAKE_END=Killed: 9'
  refuses 'Aborted' 'FAKE_END=Abort trap: 6'
  refuses 'Another signal' 'FAKE_END=Segmentation fault: 11'
  refuses 'Running, but slow' FAKE_START_TIME=31
  refuses 'The same, just after the Mac has started' FAKE_START_TIME=89 FAKE_UPTIME=299

  echo '## Removals in special cases'
  echo
  echo 'The lines about what was removed are left out here.'
  echo
  left_out='^Removed '
  echo 'After a crash that left the charge held:'
  echo
  installed_mac crashed
  : >"$FAKE_MAC/crashing"
  run 'sudo /Library/Brisko/uninstall-service.sh' uninstall
  echo 'A daemon that its records end at every start:'
  echo
  installed_mac records
  : >"$FAKE_MAC/crashing"
  printf '{"protectedSeconds":1e300}' >"$BRISKO_ROOT/Library/Application Support/Brisko/stats.json"
  run 'sudo /Library/Brisko/uninstall-service.sh' uninstall
  echo 'A daemon that does not start at all:'
  echo
  installed_mac broken
  : >"$FAKE_MAC/crashing"
  with FAKE_BROKEN=134 run 'sudo /Library/Brisko/uninstall-service.sh' uninstall
  echo 'A daemon that hangs:'
  echo
  installed_mac deaf
  : >"$FAKE_MAC/crashing"
  with FAKE_DEAF=1 run 'sudo /Library/Brisko/uninstall-service.sh' uninstall
  echo 'Its program is missing:'
  echo
  installed_mac missing
  : >"$FAKE_MAC/crashing"
  rm "$BRISKO_ROOT/Library/Brisko/brisko-daemon"
  run 'sudo /Library/Brisko/uninstall-service.sh' uninstall
  echo 'A job that does not end:'
  echo
  installed_mac stubborn
  with FAKE_STUBBORN=1 run 'sudo /Library/Brisko/uninstall-service.sh' uninstall
}

installed_mac() {
  new_mac "$work/mac-$1"
  install >/dev/null
}

locked='{"detail":"26A428","message":"macOS 27 closed the keys that stop charging, and offers no limit of its own.","reason":"system-locked","supported":false}'
make_package
write_document >"$work/document"
if [ "${1:-}" = --check ]; then
  diff "$document" "$work/document" || {
    echo "docs/installer-transcripts.md is out of date: run tests/packaging/transcripts.sh." >&2
    exit 1
  }
else
  cat "$work/document" >"$document"
fi
