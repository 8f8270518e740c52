#!/bin/sh
# scripts/check-scripts.sh finds in a script for a Mac what bash 3.2 does not know.
set -eu
check=$(CDPATH='' cd -- "$(dirname -- "$0")/../.." && pwd)/scripts/check-scripts.sh
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# is_accepted LINE
is_accepted() {
  printf '#!/bin/bash\n%s\n' "$1" >"$work/script.sh"
  "$check" "$work" >"$work/output" 2>&1
}

number=0
while IFS= read -r line; do
  number=$((number + 1))
  ! is_accepted "$line" || { echo "Bash 3.2 does not know this, and it is not found: $line" >&2; exit 1; }
done <<'END'
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
while IFS= read -r line; do
  number=$((number + 1))
  is_accepted "$line" || { cat "$work/output"; echo "Bash 3.2 knows this: $line" >&2; exit 1; }
done <<'END'
echo "${name#x}" "${name:-y}" "$((1 + 1))" $'\n'
[[ $name == x* ]] && list=(a b) && echo "${list[@]}" "${list[0]}"
while read -r line; do :; done < <(ls)
printf '%s' x &>file
# declare -A would be newer
END
echo "$number lines"
