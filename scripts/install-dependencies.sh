#!/usr/bin/env bash
# Installs the packages that are missing to build the project and, with "checks", to test it. If none is missing it
# does nothing and needs no privileges.
set -euo pipefail

packages=(g++ cmake ninja-build pkg-config nlohmann-json3-dev libcli11-dev libuv1-dev libplist-dev libgtest-dev
  libgmock-dev libbenchmark-dev libxml2-dev lld rapidjson-dev)
if [[ "${1:-}" == checks ]]; then
  packages+=(clang clang-format clang-tidy duktape fish jq libclang-rt-14-dev libxml2-utils llvm-14 mandoc make
    original-awk shellcheck zsh)
fi

if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
  echo "This is not a Debian or Ubuntu system. Install the equivalents of these Debian packages, then build with" >&2
  echo "cmake --preset release && cmake --build build/release:" >&2
  echo "  ${packages[*]}" >&2
  exit 1
fi

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query --show --showformat='${db:Status-Status}' "$package" 2>/dev/null || true)
  [[ "$status" == installed ]] || missing+=("$package")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

as_root=()
if [[ $EUID -ne 0 ]]; then
  if ! command -v sudo >/dev/null; then
    echo "These packages are missing, and only root can install them:" >&2
    echo "  apt-get install ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi

echo "Installing ${missing[*]}"
"${as_root[@]}" apt-get update --quiet
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install --yes --quiet --no-install-recommends "${missing[@]}"
