#!/bin/bash
# check_exports.sh LIBRARY LIST: the library exports exactly the names of the list (on Linux each in its node) and needs
# nothing unexpected. Reads the file, never loads it.
set -euo pipefail
library=$1 list=$2
problems=0

# Complains when the two texts differ.
same() {
  local what=$1 expected=$2 found=$3
  [ "$expected" = "$found" ] && return
  echo "$what differs (< expected, > found):"
  diff <(printf '%s\n' "$expected") <(printf '%s\n' "$found") || true
  problems=1
}

# names SEPARATOR: the names of the list, with the separator and the node behind each where there is a separator.
names() {
  awk -v separator="$1" '
    /^(#.*)?$/ { next }
    $1 == "node" { node = $2; next }
    { print $1 (separator == "" ? "" : separator node) }' "$list" | sort
}

check_elf() {
  # The nodes' own names are in the table too.
  same "the export table" "$(names @@)" "$(nm -D --defined-only "$library" | awk '$2 != "A" { print $3 }' | sort)"
  same "the SONAME" libzel.so.0 "$(readelf -d "$library" | sed -n 's/.*SONAME.*\[\(.*\)\]/\1/p')"
}

check_dll() {
  local dump
  dump=$(x86_64-w64-mingw32-objdump -p "$library")
  same "the export table" "$(names "")" "$(awk '
    /^\[Ordinal\/Name Pointer\] Table/ { inside = 1; next }
    inside && !/\[/ { exit }
    inside { print $NF }' <<<"$dump" | sort)"
  same "the DLL's own name" libzel.dll "$(sed -n 's/^Name[[:space:]]*[0-9a-f]* \(.*\)/\1/p' <<<"$dump")"
  same "the list of imports that are not the system's" "" \
    "$(sed -n 's/.*DLL Name: //p' <<<"$dump" | grep -viE '^(kernel32|msvcrt|ws2_32|iphlpapi)\.dll$' || true)"
}

case $library in
  *.dll) check_dll ;;
  *) check_elf ;;
esac
exit "$problems"
