#!/bin/bash
# Compiles a file with every warning that a user may have switched on, by each compiler that is there and each C++.
#
#   compiles.sh FILE OPTION...
set -uo pipefail

failed=0
for compiler in g++ clang++; do
  command -v "$compiler" >/dev/null || { echo "no $compiler"; failed=1; continue; }
  for standard in c++17 c++20 c++2b; do
    if "$compiler" "-std=$standard" -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Werror \
      -fsyntax-only "${@:2}" "$1"; then
      echo "ok      $compiler $standard"
    else
      echo "FAILED  $compiler $standard"
      failed=1
    fi
  done
done
exit "$failed"
