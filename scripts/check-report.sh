#!/usr/bin/env bash
# Checks a report of the lab in headless Chromium: that it loads without errors, that pointing, clicking and the
# slider work, that everything is readable in light and dark mode, and that the whole log is printed. The argument is
# a scenario; the default is the one in the README. KEEP=FOLDER keeps the renderings in that folder.
set -euo pipefail
cd "$(dirname "$0")/.."

scenario=${1:-tests/scenarios/a-day-and-two-nights.json}
lab=${LAB:-build/release/brisko-lab}

browser=$(command -v chromium || command -v chromium-browser || command -v google-chrome || true)
if [[ -z $browser ]] || ! command -v pdftotext >/dev/null; then
  echo "This script needs Chromium and pdftotext (Debian packages: chromium, poppler-utils)." >&2
  exit 2
fi
[[ -x $lab ]] || { echo "There is no program at $lab. Build it, or set LAB to its path." >&2; exit 2; }

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
results=${KEEP:-$folder}
mkdir -p "$results"

browse() {
  "$browser" --headless --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking \
    --disable-component-update --disable-sync --hide-scrollbars --user-data-dir="$folder/profile" "$@" 2>/dev/null
}

# Records errors from the first script on, and runs the checks after the last one.
"$lab" run --report "$folder/report.html" "$scenario"
{
  sed '/^<head>$/q' "$folder/report.html"
  echo '<script>window.errorsSeen = []; addEventListener("error", (event) => errorsSeen.push(event.message));
    console.error = console.warn = (...words) => errorsSeen.push(words.join(" "));</script>'
  sed '1,/^<head>$/d; /^<\/body>$/,$d' "$folder/report.html"
  echo '<script>'
  cat scripts/check-report.js
  echo '</script></body></html>'
} >"$folder/checked.html"

failed=0
# check_page SCHEME WIDTH [OPTION…]
check_page() {
  local scheme=$1 width=$2 dom
  dom=$(browse --window-size="$width,1000" "${@:3}" --dump-dom "file://$folder/checked.html")
  if grep --quiet "<html[^>]* data-scheme=\"$scheme\" data-faults=\"none\"" <<<"$dom"; then
    echo "passed $scheme, $width wide"
  else
    echo "FAILED $scheme, $width wide:"
    sed -n '/<html/,/>/{s/^.*data-faults="//;s/">$//;p}' <<<"$dom" | head -20
    failed=1
  fi
  browse --window-size="$width,1000" "${@:3}" --screenshot="$results/$scheme-$width.png" "file://$folder/report.html"
}
dark=--blink-settings=preferredColorScheme=0
check_page light 1500
check_page light 800
check_page dark 1500 "$dark"

# check NAME COMMAND…
check() {
  if "${@:2}"; then echo "passed $1"; else echo "FAILED $1"; failed=1; fi
}
browse --no-pdf-header-footer --print-to-pdf="$results/print.pdf" "$dark" "file://$folder/report.html"
pdftotext -layout "$results/print.pdf" "$folder/print.txt"
lines_of() { grep --count 'T[0-9:]\{8\}Z' "$1"; }
check 'print: the whole log' test "$(lines_of "$folder/print.txt")" -eq "$(lines_of "$folder/report.html")"
check 'print: no values of a selected moment' test "$(grep --count '^ *Hardware  *Current' "$folder/print.txt")" -eq 0
exit $failed
