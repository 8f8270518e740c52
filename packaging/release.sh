#!/bin/sh
# release.sh TAG: signs, packs and notarises the built programs for the release TAG, in a job that has the certificates
# and the key of the notary service as secrets. Without them it says which are missing and makes nothing. The last line
# is "released=yes" or "released=no".
set -eu
umask 077

tag=$1
cd "$(dirname -- "$0")"
version=$(sed -n 's/.*daemonVersion = "\(.*\)";/\1/p' ../src/base/process_flags.h)
[ "$tag" = "v$version" ] || {
  echo "The tag is $tag, but the version in src/base/process_flags.h is $version." >&2
  exit 1
}
grep -Fq "## $version" ../CHANGELOG.md || {
  echo "CHANGELOG.md has no section for $version." >&2
  exit 1
}

# The certificates are .p12 files and the key a .p8 file, in base64.
missing=
for secret in APPLICATION_CERTIFICATE INSTALLER_CERTIFICATE CERTIFICATE_PASSWORD NOTARY_KEY NOTARY_KEY_ID \
  NOTARY_ISSUER; do
  eval "value=\${$secret:-}"
  # shellcheck disable=SC2154 # eval has set it
  [ -n "$value" ] || missing="$missing${missing:+, }$secret"
done
if [ -n "$missing" ]; then
  echo "$tag is not released, because these secrets are missing: $missing."
  echo "released=no"
  exit 0
fi

secrets=$(mktemp -d "${RUNNER_TEMP:-/tmp}/brisko-release.XXXXXX")
keychain=$secrets/release.keychain-db
# shellcheck disable=SC2317 # the trap calls it
clean_up() {
  security delete-keychain "$keychain" >/dev/null 2>&1 || true
  rm -rf "$secrets"
}
trap clean_up EXIT
trap 'exit 1' HUP INT TERM

password=$(od -An -tx1 -N16 /dev/urandom | tr -d ' \n')
security create-keychain -p "$password" "$keychain"
security set-keychain-settings -t 3600 "$keychain"
security unlock-keychain -p "$password" "$keychain"
for certificate in APPLICATION INSTALLER; do
  eval "printf '%s' \"\$${certificate}_CERTIFICATE\"" | base64 -D >"$secrets/$certificate.p12"
  security import "$secrets/$certificate.p12" -k "$keychain" -P "$CERTIFICATE_PASSWORD" \
    -T /usr/bin/codesign -T /usr/bin/productbuild >/dev/null
done
security set-key-partition-list -S apple-tool:,apple: -s -k "$password" "$keychain" >/dev/null
security list-keychains -d user -s "$keychain"
printf '%s' "$NOTARY_KEY" | base64 -D >"$secrets/notary.p8"

identity() {
  name=$(security find-identity -v "$keychain" | sed -n "s/.*\"\(Developer ID $1: .*\)\"\$/\1/p" | head -n 1)
  [ -n "$name" ] || {
    echo "The certificates contain no \"Developer ID $1\"." >&2
    exit 1
  }
  printf '%s\n' "$name"
}
application=$(identity Application)
installer=$(identity Installer)

out=${OUT:-../build/package}
programs=${PROGRAM:-../build/macos/brisko-daemon}
build() {
  make --no-print-directory "$@" PROGRAM="$programs" OUT="$out"
}
build sign IDENTITY="$application"
build package INSTALLER_IDENTITY="$installer"
build notarize NOTARY="--key $secrets/notary.p8 --key-id $NOTARY_KEY_ID --issuer $NOTARY_ISSUER"
build staple
build cask URL="${URL:-https://github.com/${GITHUB_REPOSITORY:-}/releases/download/$tag/brisko-daemon-$version.pkg}"
build bill-of-materials
tar -czf "$out/brisko-daemon-$version-symbols.tar.gz" -C "$(dirname "$programs")" brisko-daemon.dSYM brisko.dSYM \
  brisko-lab.dSYM
build checksums
echo "released=yes"
