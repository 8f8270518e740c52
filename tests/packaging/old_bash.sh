#!/bin/sh
# scripts/check-scripts.sh finds in a script for a Mac what bash 3.2 does not know.
set -eu
check=$(CDPATH='' cd -- "$(dirname -- "$0")/../.." && pwd)/scripts/check-scripts.sh
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# write_scripts FOLDER: one for each line of standard input. Adds to number.
write_scripts() {
  mkdir "$work/$1"
  while IFS= read -r line; do
    number=$((number + 1))
    printf '#!/bin/bash\n%s\n' "$line" >"$work/$1/$number.sh"
  done
}

number=0
write_scripts unknown <<'END'
echo "${name,,}"
echo "${name^}"
declare -A table
local -n other=name
mapfile -t lines <file
readarray lines
coproc cat
ls |& cat
ls &>>file
case a in a) echo ;;& esac
case a in a) echo ;& esac
echo {1..9..2}
echo "$BASHPID"
echo "$EPOCHSECONDS"
shopt -s globstar
printf -v list[1] x
printf '%(%s)T' -1
exec {descriptor}<file
echo "${list[-1]}"
[ -v name ]
[[ -v name ]]
wait -n
echo "${name@Q}"
read -r -N 1 letter
source <(echo true)
echo $'\u00e9'
END
! "$check" "$work/unknown" >"$work/output" 2>&1 || { echo "Nothing is found." >&2; exit 1; }
for script in "$work"/unknown/*; do
  grep -Fq "$script:" "$work/output" || {
    echo "Bash 3.2 does not know this, and it is not found: $(tail -n 1 "$script")" >&2
    exit 1
  }
done
write_scripts known <<'END'
echo "${name#x}" "${name:-y}" "$((1 + 1))" $'\n'
[[ $name == x* ]] && list=(a b) && echo "${list[@]}" "${list[0]}"
while read -r line; do :; done < <(ls)
printf '%s' x &>file
# declare -A would be newer
END
"$check" "$work/known" >"$work/output" 2>&1 || { cat "$work/output"; echo "Bash 3.2 knows this." >&2; exit 1; }
echo "$number lines"
