#!/bin/bash
# subdirectory.sh WORK: a project takes the sources in, by add_subdirectory and by FetchContent. That leaves nothing behind
# in the project, installs nothing, and the programs run.
set -euo pipefail
work=$1
here=$(cd "$(dirname "$0")" && pwd)
tree=$(cd "$here/../.." && pwd)

fail() {
  echo "subdirectory: $*" >&2
  exit 1
}

quiet() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; fail "$*"; }; }

configure() {
  local name=$1
  shift
  quiet cmake -G Ninja -S "$here/embedding" -B "$work/$name" -DLIBZEL_SOURCE="$tree" -DCMAKE_BUILD_TYPE=Release "$@"
}

rm -rf "$work"
mkdir -p "$work"
if command -v ccache >/dev/null; then export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache; fi
configure fetched -DEMBED_BY_FETCH=ON
configure added -DCMAKE_EXPORT_COMPILE_COMMANDS=ON
quiet cmake --build "$work/added" --parallel 2

# Our options and definitions stay on our own sources.
commands=$(grep -F '"command"' "$work/added/compile_commands.json" | grep -F outside/program)
[ -n "$commands" ] || fail "no commands in compile_commands.json"
if grep -E -e '-W|-f|_WIN32_WINNT' <<<"$commands"; then fail "the project's own files are compiled with our options"; fi

quiet cmake --install "$work/added" --prefix "$work/prefix"
installed=$(cd "$work/prefix" && find . -type f)
[ "$installed" = ./bin/c_libzel ] || fail "installed: $installed"

for program in "$work"/added/{c,cxx}_{libzel,static}; do
  "$tree/tests/lab/lab.sh" --sim "0 --listen 127.0.0.1:9999 --no-discovery" -- "$program" \
    >"$work/library.log" 2>"$work/answer" || { cat "$work/library.log" "$work/answer"; fail "$program"; }
done
