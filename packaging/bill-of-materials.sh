#!/bin/sh
# bill-of-materials.sh VERSION COMPONENTS PROGRAM…: prints what the programs were made of, as a CycloneDX document.
# COMPONENTS is the file that CMake has written beside them: a name, a version and a licence on each line.
set -eu

version=$1 components=$2
shift 2

sum() {
  shasum -a 256 "$1" | cut -d ' ' -f 1
}

programs=
for program; do
  [ -f "$program" ] || { echo "There is no program at $program" >&2; exit 1; }
  programs="$programs${programs:+,}
      {\"type\": \"application\", \"name\": \"$(basename "$program")\", \"version\": \"$version\",
       \"hashes\": [{\"alg\": \"SHA-256\", \"content\": \"$(sum "$program")\"}]}"
done
libraries=
while read -r name number licence; do
  libraries="$libraries${libraries:+,}
    {\"type\": \"library\", \"name\": \"$name\", \"version\": \"$number\", \"scope\": \"required\",
     \"licenses\": [{\"license\": {\"id\": \"$licence\"}}]}"
done <"$components"
[ -n "$libraries" ] || { echo "$components names no component" >&2; exit 1; }

cat <<END
{
  "bomFormat": "CycloneDX",
  "specVersion": "1.5",
  "version": 1,
  "metadata": {
    "component": {"type": "application", "name": "brisko-daemon", "version": "$version", "components": [$programs
    ]}
  },
  "components": [$libraries
  ]
}
END
