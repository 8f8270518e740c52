# To be sourced. own_sources lists our own C++ files, as paths relative to the project's folder.
# shellcheck shell=bash

own_sources() {
  local folders=() folder
  for folder in src sim report tools client tests benchmarks; do
    [[ -d $folder ]] && folders+=("$folder")
  done
  find "${folders[@]}" -type f \( -name '*.h' -o -name '*.cpp' -o -name '*.mm' \) | LC_ALL=C sort
}
