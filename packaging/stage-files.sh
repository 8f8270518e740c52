#!/bin/sh
# stage-files.sh DAEMON BRISKO LAB FOLDER: lays out in FOLDER what /Library/Brisko contains on a Mac: the programs, the
# uninstaller, and in share/ the manuals, the documents and the shells' completions. The package contains this folder,
# and install-service.sh copies it.
set -eu
umask 022

daemon=$1 client=$2 lab=$3
sources=$(CDPATH='' cd -- "$(dirname -- "$0")/.." && pwd)
mkdir -p "$4"
folder=$(CDPATH='' cd -- "$4" && pwd)

mkdir -p "$folder/share/doc" "$folder/share/completions" "$folder/share/man/man1" "$folder/share/man/man5" \
  "$folder/share/man/man8"
cat "$daemon" >"$folder/brisko-daemon"
cat "$client" >"$folder/brisko"
cat "$lab" >"$folder/brisko-lab"
cat "$sources/packaging/uninstall-service.sh" >"$folder/uninstall-service.sh"
chmod 755 "$folder/brisko-daemon" "$folder/brisko" "$folder/brisko-lab" "$folder/uninstall-service.sh"

for page in brisko.1 brisko-config.5 brisko-daemon.8; do
  cp "$sources/man/$page" "$folder/share/man/man${page##*.}"
done
(cd "$sources/docs" && cp -R ../CHANGELOG.md ../SECURITY.md using-it.md glossary.md log.md files.md diagnostics.md \
  report.md macos.md many-macs.md troubleshooting.md schemas "$folder/share/doc")
# A checkout keeps the modes of its user.
chmod -R u=rwX,go=rX "$folder/share"

"$folder/brisko" completions bash >"$folder/share/completions/brisko.bash"
"$folder/brisko" completions zsh >"$folder/share/completions/_brisko"
"$folder/brisko" completions fish >"$folder/share/completions/brisko.fish"
