#!/bin/bash
# outside.sh linux|windows PREFIX WORK: builds the project in outside/ against what is installed in PREFIX, with CMake and
# with pkg-config, in C and C++, shared and static, in the empty directory WORK, and runs every program in a lab.
set -euo pipefail
system=$1 prefix=$2 work=$3
here=$(cd "$(dirname "$0")" && pwd)
tree=$(cd "$here/../.." && pwd)
programs=()

fail() {
  echo "outside: $*" >&2
  exit 1
}

# quiet COMMAND...: shows what it said only when it fails.
quiet() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; fail "$*"; }; }

with_cmake() {
  local name=$1 languages=$2 version=$3 folder
  shift 3
  quiet cmake -G Ninja -S "$here/outside" -B "$work/$name" -DCMAKE_PREFIX_PATH="$prefix" \
    -DOUTSIDE_LANGUAGES="$languages" -DOUTSIDE_WANTS="$version" -DCMAKE_BUILD_TYPE=Release "$@"
  # Not a libzel of the machine's.
  folder=$(sed -n 's/^libzel_DIR:PATH=//p' "$work/$name/CMakeCache.txt")
  [[ $folder == "$prefix"/* ]] || fail "CMake found libzel in $folder"
  quiet cmake --build "$work/$name" --parallel 2
  programs+=("$work/$name"/{c,cxx}_{libzel,static}"$suffix")
}

# Projects that ask for another interface do not get this one.
refuses() {
  local version=$1
  if cmake -G Ninja -S "$here/outside" -B "$work/refused" -DCMAKE_PREFIX_PATH="$prefix" -DOUTSIDE_LANGUAGES=C \
    -DOUTSIDE_WANTS="$version" >"$work/log" 2>&1; then
    fail "CMake found version $version"
  fi
  grep -q "considered but not accepted" "$work/log" || { cat "$work/log"; fail "it is not the version $version that is refused"; }
  rm -r "$work/refused"
}

# with_pkg_config LANGUAGE COMPILER FLAG...: the flag -static makes both the program and pkg-config's answer static.
with_pkg_config() {
  local language=$1 compiler=$2 kind=shared static=()
  shift 2
  if [[ " $* " == *" -static "* ]]; then kind=static static=(--static); fi
  local program=$work/pkg_config_${language}_$kind$suffix flags
  flags=$(pkg-config "${static[@]}" --cflags --libs libzel) || fail "pkg-config"
  # shellcheck disable=SC2086 # flags are words
  quiet "$compiler" "$here/outside/program.$language" $flags "$@" -o "$program"
  programs+=("$program")
}

run() {
  local program sim="0 --listen 127.0.0.1:9999 --no-discovery" wine=()
  if [ "$system" = windows ]; then wine=(--wine); fi
  for program in "${programs[@]}"; do
    [ -x "$program" ] || continue
    "$tree/tests/lab/lab.sh" --sim "$sim" "${wine[@]}" -- "$program" >"$work/library.log" 2>"$work/answer" ||
      { cat "$work/library.log" "$work/answer"; fail "$program"; }
    grep -q "answers: hello from C" "$work/answer" || fail "$program said something else: $(cat "$work/answer")"
    ran=$((ran + 1))
  done
}

mkdir -p "$work"
ran=0
case $system in
  linux)
    suffix=
    PKG_CONFIG_LIBDIR=$(dirname "$(find "$prefix" -name libzel.pc)")
    LD_LIBRARY_PATH=$(dirname "$PKG_CONFIG_LIBDIR")
    export PKG_CONFIG_LIBDIR LD_LIBRARY_PATH
    with_cmake both "C;CXX" 0.2
    with_cmake c C 0.3
    for version in 0.99 1.0; do refuses "$version"; done
    with_pkg_config c gcc
    with_pkg_config cpp g++ -std=c++17
    with_pkg_config c gcc -static
    with_pkg_config cpp g++ -std=c++17 -static
    expected=10
    ;;
  windows)
    suffix=.exe
    export PKG_CONFIG_LIBDIR=$prefix/lib/pkgconfig
    with_cmake both "C;CXX" 0.2 -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_SYSTEM_PROCESSOR=x86_64 \
      -DCMAKE_C_COMPILER=x86_64-w64-mingw32-gcc-posix -DCMAKE_CXX_COMPILER=x86_64-w64-mingw32-g++-posix
    with_pkg_config c x86_64-w64-mingw32-gcc-posix
    with_pkg_config cpp x86_64-w64-mingw32-g++-posix -std=c++17 -static-libstdc++ -static-libgcc \
      -Wl,-Bstatic,--whole-archive -lwinpthread -Wl,--no-whole-archive,-Bdynamic
    with_pkg_config c x86_64-w64-mingw32-gcc-posix -static
    with_pkg_config cpp x86_64-w64-mingw32-g++-posix -std=c++17 -static
    cp "$prefix/bin/libzel.dll" "$work"
    cp "$prefix/bin/libzel.dll" "$work/both"
    expected=8
    ;;
esac
run
[ "$ran" = "$expected" ] || fail "$ran programs ran, not $expected"
echo "$ran programs ran"
