#!/usr/bin/env bash
# Installs the packages that are missing to build the project, with "checks" to test it, with "conditions" for
# `make conditions`, and with "bench" to measure it. If none is missing it does nothing and needs no privileges. The
# checks of pages in a browser, and the comparison with another daemon, are skipped where their packages cannot be
# installed; everything else is required.
set -euo pipefail

packages=(g++ cmake ninja-build pkg-config nlohmann-json3-dev libcli11-dev libuv1-dev libplist-dev libgtest-dev
  libgmock-dev libbenchmark-dev libxml2-dev lld rapidjson-dev)
optional=() without=''
if [[ "${1:-}" == bench ]]; then
  optional=(dbus umockdev upower)
  without='The other daemon cannot be installed, so ours is not measured beside it.'
fi
if [[ "${1:-}" == checks ]]; then
  optional=(chromium chromium-driver python3-selenium)
  without='The browser cannot be installed, so the checks of pages in a browser are skipped.'
  packages+=(clang clang-format clang-tidy duktape fish jq libclang-rt-14-dev libxml2-utils llvm-14 mandoc make
    original-awk parallel python3-clang-14 shellcheck zsh)
fi
if [[ "${1:-}" == conditions ]]; then
  packages+=(clang-19 libclang-rt-19-dev llvm-19)
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
mapfile -t missing_optional < <(missing_of "${optional[@]}")
[[ ${#missing[@]} -gt 0 || ${#missing_optional[@]} -gt 0 ]] || exit 0

as_root=()
if [[ $EUID -ne 0 ]]; then
  if ! command -v sudo >/dev/null; then
    echo "These packages are missing, and only root can install them:" >&2
    echo "  apt-get install ${missing[*]} ${missing_optional[*]}" >&2
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
install "${missing_optional[@]}" || echo "$without" >&2
