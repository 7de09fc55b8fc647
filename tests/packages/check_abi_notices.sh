#!/bin/bash
# check_abi_notices.sh LIBRARY: the comparison fails, and names what changed, for a record that has one thing otherwise.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
library=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# notices NAME SED-SCRIPT: the name must be in the report for the record that the script makes.
notices() {
  local name=$1 script=$2
  sed "$script" "$here/../../packaging/abi/libzel.so.0.abi" >"$work/abi"
  if ZEL_RECORDED_ABI=$work/abi "$here/check_abi.sh" "$library" >"$work/report"; then
    echo "not noticed: $name" >&2
    return 1
  fi
  grep -q "$name" "$work/report" || { cat "$work/report"; return 1; }
}

notices libzel_version "/elf-symbol name='libzel_version'/d; /function-decl name='libzel_version'/,/<.function-decl/d"
notices hostName "s/layout-offset-in-bits='4096'/layout-offset-in-bits='4100'/"
notices libzel_loop_stop "/<function-decl name='libzel_loop_stop'/,/<return/s/3ff5601b/8f92235e/"
notices libzelx_version "s/\(name='libzelx_version' version='\)LIBZELX_0.3/\1LIBZEL_0.2/"
