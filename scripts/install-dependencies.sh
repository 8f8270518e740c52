#!/usr/bin/env bash
# Installs the packages that are missing to build the project and, with "checks", to test it. If none is missing it
# does nothing and needs no privileges. The checks of pages in a browser are skipped where the browser cannot be
# installed; everything else is required.
set -euo pipefail

packages=(g++ cmake ninja-build pkg-config nlohmann-json3-dev libcli11-dev libuv1-dev libplist-dev libgtest-dev
  libgmock-dev libbenchmark-dev libxml2-dev lld rapidjson-dev)
browser=()
if [[ "${1:-}" == checks ]]; then
  browser=(chromium chromium-driver python3-selenium)
  packages+=(clang clang-format clang-tidy duktape fish jq libclang-rt-14-dev libxml2-utils llvm-14 mandoc make
    original-awk parallel python3-clang-14 shellcheck zsh)
fi

if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
  echo "This is not a Debian or Ubuntu system. Install the equivalents of these Debian packages, then build with" >&2
  echo "cmake --preset release && cmake --build build/release:" >&2
  echo "  ${packages[*]}" >&2
  exit 1
fi

# missing_of PACKAGE…: prints those that are not installed.
missing_of() {
  local package status
  for package in "$@"; do
    status=$(dpkg-query --show --showformat='${db:Status-Status}' "$package" 2>/dev/null || true)
    [[ "$status" == installed ]] || echo "$package"
  done
}
mapfile -t missing < <(missing_of "${packages[@]}")
mapfile -t missing_browser < <(missing_of "${browser[@]}")
[[ ${#missing[@]} -gt 0 || ${#missing_browser[@]} -gt 0 ]] || exit 0

as_root=()
if [[ $EUID -ne 0 ]]; then
  if ! command -v sudo >/dev/null; then
    echo "These packages are missing, and only root can install them:" >&2
    echo "  apt-get install ${missing[*]} ${missing_browser[*]}" >&2
    [[ ${#missing[@]} -eq 0 ]] && exit 0
    exit 1
  fi
  as_root=(sudo)
fi

# install PACKAGE…
install() {
  [[ $# -gt 0 ]] || return 0
  echo "Installing $*"
  "${as_root[@]}" apt-get update --quiet &&
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get install --yes --quiet --no-install-recommends "$@"
}
install "${missing[@]}"
install "${missing_browser[@]}" ||
  echo "The browser cannot be installed, so the checks of pages in a browser are skipped." >&2
