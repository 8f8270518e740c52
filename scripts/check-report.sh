#!/usr/bin/env bash
# Looks at a report of the lab in headless Chromium: that it loads without an error, that pointing, clicking and
# the slider show what they should, that everything can be read in the light and in the dark, and that the whole
# log comes out on paper. For a scenario, or the one of the README; with KEEP=FOLDER the renderings stay there.
set -euo pipefail
cd "$(dirname "$0")/.."

scenario=${1:-tests/scenarios/a-day-and-two-nights.json}
lab=${LAB:-build/release/brisko-lab}

browser=$(command -v chromium || command -v chromium-browser || command -v google-chrome || true)
if [[ -z $browser ]] || ! command -v pdftotext >/dev/null; then
  echo "This needs Chromium and pdftotext (Debian: chromium and poppler-utils)." >&2
  exit 2
fi
[[ -x $lab ]] || { echo "There is no $lab; build it, or name another in LAB." >&2; exit 2; }

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
results=${KEEP:-$folder}
mkdir -p "$results"

browse() {
  "$browser" --headless --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking \
    --disable-component-update --disable-sync --hide-scrollbars --user-data-dir="$folder/profile" "$@" 2>/dev/null
}

# The probe sees errors from the first script on, and looks after the last.
"$lab" run --report "$folder/report.html" "$scenario"
{
  sed '/^<head>$/q' "$folder/report.html"
  echo '<script>window.errorsSeen = []; addEventListener("error", (event) => errorsSeen.push(event.message));
    console.error = console.warn = (...words) => errorsSeen.push(words.join(" "));</script>'
  sed '1,/^<head>$/d; /^<\/body>$/,$d' "$folder/report.html"
  echo '<script>'
  cat scripts/check-report.js
  echo '</script></body></html>'
} >"$folder/probed.html"

failed=0
# look SCHEME WIDTH [OPTION…]
look() {
  local scheme=$1 width=$2 dom
  dom=$(browse --window-size="$width,1000" "${@:3}" --dump-dom "file://$folder/probed.html")
  if grep --quiet "<html[^>]* data-scheme=\"$scheme\" data-faults=\"none\"" <<<"$dom"; then
    echo "fine   $scheme, $width wide"
  else
    echo "FAILED $scheme, $width wide:"
    sed -n '/<html/,/>/{s/^.*data-faults="//;s/">$//;p}' <<<"$dom" | head -20
    failed=1
  fi
  browse --window-size="$width,1000" "${@:3}" --screenshot="$results/$scheme-$width.png" "file://$folder/report.html"
}
dark=--blink-settings=preferredColorScheme=0
look light 1500
look light 800
look dark 1500 "$dark"

# check NAME COMMAND…
check() {
  if "${@:2}"; then echo "fine   $1"; else echo "FAILED $1"; failed=1; fi
}
browse --no-pdf-header-footer --print-to-pdf="$results/paper.pdf" "$dark" "file://$folder/report.html"
pdftotext -layout "$results/paper.pdf" "$folder/paper.txt"
lines_of() { grep --count 'T[0-9:]\{8\}Z' "$1"; }
check 'paper: the whole log' test "$(lines_of "$folder/paper.txt")" -eq "$(lines_of "$folder/report.html")"
check 'paper: no values of a moment that nobody can choose' test "$(grep --count '^ *Hardware  *Current' "$folder/paper.txt")" -eq 0
exit $failed
