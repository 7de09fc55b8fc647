#!/bin/bash
# check_abi.sh [--accept] LIBRARY: compares the library's binary interface with the recorded one, packaging/abi. The
# library must have debug information. --accept records the library's instead. Reads the file, never loads it.
set -euo pipefail
tree=$(cd "$(dirname "$0")/../.." && pwd)
recorded=${ZEL_RECORDED_ABI:-$tree/packaging/abi/libzel.so.0.abi}
accept=no
if [ "$1" = --accept ]; then accept=yes; shift; fi
library=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

abidw --headers-dir "$tree/include/libzel" --drop-private-types --no-elf-needed --no-corpus-path --no-comp-dir-path --no-show-locs \
  --exported-interfaces-only --type-id-style hash "$library" >"$work/abi"
if [ "$(grep -c '<function-decl ' "$work/abi")" = 0 ]; then
  echo "$library has no debug information" >&2
  exit 2
fi
if [ "$accept" = yes ]; then
  cp "$work/abi" "$recorded"
  exit
fi
status=0
abidiff "$recorded" "$work/abi" 2>"$work/errors" || status=$?
# It takes a record that it cannot read for one without differences.
if [ -s "$work/errors" ]; then
  cat "$work/errors" >&2
  exit 2
fi
[ "$status" = 0 ] || cat <<END

The binary interface differs from the recorded one. Programs that are linked to the library may break: a change that is
not only an addition wants another SONAME. To accept it on purpose, with a line in CHANGELOG.md:
  tests/packages/check_abi.sh --accept $library
END
exit "$status"
