#!/usr/bin/env bash
# Writes the tables of docs/files.md from the schemas in docs/schemas/. With --check it changes nothing, shows what is
# out of date, and fails if anything is.
set -euo pipefail
cd "$(dirname "$0")/../docs"

# A row for each key, followed by the keys of the object or of the objects in the list that it contains.
# shellcheck disable=SC2016 # the names are jq's
rows='
  . as $schema |
  def resolved: if has("$ref") then (.["$ref"] | split("/")[1:]) as $path | ($schema | getpath($path)) + . else . end;
  def kind:
    if has("enum") then (if .enum[0] | type == "boolean" then "boolean" else "text" end)
    elif .type == "array" then "list of " + (.items | resolved | kind) + "s"
    elif .type == "string" then "text"
    else .type end;
  def rows(prefix):
    .properties // {} | to_entries[] | .key as $key | .value | resolved |
    "| `\(prefix)\($key)`\(if .triggersWrite then " •" else "" end) | \(kind)\(if .unit then ", " + .unit else "" end)" +
      " | \(.description) |",
    (if .type == "array" then .items | resolved | rows("\(prefix)\($key)[].") else rows("\(prefix)\($key).") end);
  "| key | type | what |", "|---|---|---|", rows("")'

# A table is between the line that names its schema and the next empty line.
generated() {
  local line schema
  while IFS= read -r line; do
    printf '%s\n' "$line"
    schema=$(sed -nE 's/^<!-- (schemas\/.*\.json) -->$/\1/p' <<<"$line")
    [[ -n $schema ]] || continue
    jq --raw-output "$rows" "$schema"
    while IFS= read -r line && [[ -n $line ]]; do :; done
    echo
  done <files.md
}

if [[ "${1:-}" == --check ]]; then
  if ! generated | diff files.md -; then
    echo "The tables of docs/files.md are out of date: run scripts/files-tables.sh." >&2
    exit 1
  fi
else
  text=$(generated)
  printf '%s\n' "$text" >files.md
fi
