#!/bin/bash
# Compiles a file and looks which lines are refused: those that say so, and no others.
#
#   refused.sh FILE COMPILER [OPTION...]
set -uo pipefail

file=$1
shift
said=$(LC_ALL=C "$@" -fsyntax-only "$file" 2>&1)
got=$(grep -oE "$(basename "$file"):[0-9]+:[0-9]+: error" <<<"$said" | cut -d: -f2 | sort -nu)
expected=$(grep -n "// refused$" "$file" | cut -d: -f1)
if [ -n "$expected" ] && [ "$got" = "$expected" ]; then
  exit 0
fi
echo "$said"
echo "refused: lines" $got "in place of" $expected
exit 1
