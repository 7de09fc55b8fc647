#!/bin/bash
# Makes the packages twice, and tests them as their users get them: installed into an empty root, unpacked, linked to.
#   run.sh [--quick]    with --quick they are made once
# The last line is ctest's summary, for test.sh.
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
tree=$(cd "$here/../.." && pwd)
packages=$tree/build/packages work=$tree/build/packages-test
root=$work/root failed=0 total=0 quick=no
if [[ " $* " == *" --quick "* ]]; then quick=yes; fi
export ZELSIM=$root/usr/bin/zelsim

fail() {
  echo "$*" >&2
  return 1
}

check() {
  local name=$1
  shift
  total=$((total + 1))
  local start=$SECONDS status
  # Not as a condition: set -e would have no effect there.
  ("$@") >"$work/$name.log" 2>&1
  status=$?
  if [ "$status" = 0 ]; then
    echo "ok      $name ($((SECONDS - start)) s)"
  else
    failed=$((failed + 1))
    echo "FAILED  $name"
    sed 's/^/    /' "$work/$name.log"
  fi
}

makes_packages() { "$tree/package.sh"; }

makes_the_same_again() {
  set -e
  cp "$packages/SHA256SUMS" "$work/first"
  "$tree/package.sh"
  diff "$work/first" "$packages/SHA256SUMS"
  cd "$packages"
  sha256sum --quiet --check SHA256SUMS
}

pleases_lintian() { lintian --allow-root --fail-on error,warning "$packages"/*.deb; }

# dpkg itself, with what a clean Debian of these dependencies would have said to be installed.
installs() {
  set -e
  mkdir -p "$root/var/lib/dpkg"/{info,updates} "$root/etc"
  local package
  for package in libc6 libgcc-s1 libstdc++6 libc6-dev python3 libnats3.4 libcpp-httplib0.11 libprometheus-cpp-core1.0; do
    printf 'Package: %s\nStatus: install ok installed\nMaintainer: none\nArchitecture: amd64\n' "$package"
    printf 'Multi-Arch: allowed\nVersion: %s\nDescription: none\n\n' "$(dpkg-query -W -f '${Version}' "$package")"
  done >"$root/var/lib/dpkg/status"
  # Scripts of packages would run in the root, which has no shell.
  dpkg --root="$root" --force-script-chrootless --install "$packages"/*.deb
  [ "$(dpkg-query --admindir="$root/var/lib/dpkg" -W -f '${Package} ${db:Status-Status}\n' '*zel*' | grep -c installed)" = 8 ]
  dpkg --root="$root" --verify
}

# What a debugger does with the library: by its build identifier it finds names and lines, which the library has not.
tells_debuggers() {
  set -e
  local program=$root/usr/lib/x86_64-linux-gnu/libzel.so.0 identifier address symbols found
  identifier=$(readelf --notes "$program" | sed -n 's/^ *Build ID: //p')
  symbols=$root/usr/lib/debug/.build-id/${identifier:0:2}/${identifier:2}.debug
  address=$(nm --dynamic "$program" | sed -n 's/ T libzel_init@.*//p')
  cd "$tree" # the names are relative to the sources
  found=$(addr2line --functions --exe "$symbols" "0x$address")
  is "the place of libzel_init" "libzel_init $tree/src/libzel/libzel.cpp" \
    "$(head -n 1 <<<"$found") $(realpath -m "$(tail -n 1 <<<"${found%:*}")")"
  ! readelf --sections "$program" | grep -F .debug_info || fail "the library itself has debug information"
  [ -s "$root/usr/share/doc/libzel0-dbgsym/copyright" ] || fail "no licence"
}

# That they build is what all the other tests see; here is that none is missing.
configures_the_sources() {
  set -e
  mkdir "$work/sources"
  tar -xzf "$packages"/libzel-*.tar.gz -C "$work/sources"
  cmake -G Ninja -S "$work"/sources/libzel-* -B "$work/sources/build" -DZEL_BUILD_TESTS=ON -DZEL_BUILD_TOOLS=ON \
    -DZEL_BUILD_EXAMPLES=ON -DZEL_BUILD_BENCH=ON
  ninja -C "$work/sources/build" -n >"$work/sources/commands"
}

holds_no_build_path() {
  set -e
  local place
  for place in "$root/usr" "$work/zip"; do
    ! grep -rlF "$tree" "$place" || fail "these files name the folder that they were made in"
  done
}

links_on_linux() { "$here/outside.sh" linux "$root/usr" "$work/linux"; }

# The programs as a user runs them: what they need is in the root.
runs_the_tools() {
  set -e
  export LD_LIBRARY_PATH=$root/usr/lib/x86_64-linux-gnu
  ldd "$root/usr/bin/zel" | grep -F "$root"
  "$tree/tests/lab/lab.sh" --sim "0 --listen 127.0.0.1:9999 --no-discovery" -- \
    "$root/usr/bin/zel" request 127.0.0.1.0.1 --port 600 --group 1 --offset 2 "from a package" | grep -x "from a package"
  # A shell without bash-completion has the script's function, too.
  bash -c "source '$root/usr/share/bash-completion/completions/zel' && complete -p zel"
  local page
  for page in zel zelsim zelgate; do man --warnings -E UTF-8 -l "$root/usr/share/man/man1/$page.1.gz" | grep -i "$page"; done
}

runs_python() {
  "$tree/tests/lab/lab.sh" --sim "0 --listen 127.0.0.1:9999 --no-discovery" -- \
    env PYTHONPATH="$root/usr/lib/python3/dist-packages" LD_LIBRARY_PATH="$root/usr/lib/x86_64-linux-gnu" \
    /usr/bin/python3 -B "$here/outside/program.py"
}

unpacks_for_windows() {
  set -e
  mkdir "$work/zip"
  unzip -q "$packages"/libzel-*-windows-x64.zip -d "$work/zip"
  local file
  for file in bin/libzel.dll bin/zel.exe lib/libzel.dll.a lib/libzel.lib lib/libzel.a include/libzel/libzel.h \
    include/libzel/libzelx.h lib/cmake/libzel/libzelConfig.cmake share/doc/libzel/README.md; do
    [ -s "$work"/zip/*/"$file" ] || fail "no $file"
  done
}

# What somebody on Windows sees first: files to open with a double click, whose words lead somewhere.
opens_on_windows() {
  set -e
  local zip file target
  zip=$(echo "$work"/zip/*)
  is "at the top" "LICENSE.txt README.txt bin documents.html include lib python share wireshark" \
    "$(find "$zip" -mindepth 1 -maxdepth 1 -printf '%f\n' | LC_ALL=C sort | xargs)"
  ! grep -v $'\r$' "$zip/README.txt" || fail "lines of README.txt that do not end as on Windows"
  ! LC_ALL=C grep -P '[^\x20-\x7e\r]|.{100}' "$zip/README.txt" || fail "characters or lines that not every console has room for"
  grep -F "libzel $(basename "$zip" | cut -d- -f2) for 64-bit Windows" "$zip/README.txt"
  while read -r file; do
    [ -e "$zip/$file" ] || fail "README.txt names $file"
  done < <(tr -d '\r' <"$zip/README.txt" | sed -nE 's/^  ([a-z]+[\\.][^ ,]*)(,| ).*/\1/p' | grep -v '^bin.zel$' | tr '\\' /)
  target=$(sed -n 's/.*url=\([^"]*\)".*/\1/p' "$zip/documents.html")
  python3 -B "$tree/tests/docs/check_search.py" "$zip/${target%/*}" "$tree"
  grep doxygen-awesome "$zip/share/doc/libzel/COPYRIGHT.txt"
}

# is WHAT EXPECTED FOUND
is() { [ "$3" = "$2" ] || fail "$1: $3, not $2"; }

has_one_version() {
  set -e
  local version zip file field
  version=$(sed -n 's/^project(libzel VERSION \([0-9.]*\).*/\1/p' "$tree/CMakeLists.txt")
  zip=$(echo "$work"/zip/*)
  export LD_LIBRARY_PATH=$root/usr/lib/x86_64-linux-gnu
  for file in "$packages"/*.deb; do is "$file" "$version-1" "$(dpkg-deb --field "$file" Version)"; done
  [ -s "$packages/libzel-$version.tar.gz" ] || fail "no sources of $version"
  is "the archive's folder" "libzel-$version-windows-x64" "$(basename "$zip")"
  is "the library's file" "libzel.so.$version" "$(readlink "$LD_LIBRARY_PATH/libzel.so.0")"
  for file in "$root/usr/lib/x86_64-linux-gnu/pkgconfig/libzel.pc" "$zip/lib/pkgconfig/libzel.pc"; do
    is "$file" "Version: $version" "$(grep ^Version "$file")"
  done
  is zelsim "zelsim $version" "$("$root/usr/bin/zelsim" --version)"
  is zelgate "zelgate $version" "$("$tree/tests/lab/lab.sh" -- "$root/usr/bin/zelgate" --version)"
  is zel "zel $version" "$("$tree/tests/lab/lab.sh" -- "$root/usr/bin/zel" --version)"
  is zel.exe "zel $version" "$("$tree/tests/lab/lab.sh" --wine -- "$zip/bin/zel.exe" --version | tr -d '\r')"
  for file in libzel.dll zel.exe; do
    for field in FileVersion ProductVersion; do
      is "the $field of $file" "$version" "$(strings --encoding=l "$zip/bin/$file" | sed -n "/^$field\$/{n;p}")"
    done
  done
  is Python "$version $version" "$(PYTHONPATH=$root/usr/lib/python3/dist-packages /usr/bin/python3 -B -c \
    'import importlib.metadata, zel; print(zel.__version__, importlib.metadata.version("zel"))')"
  is "Python on Windows" "__version__ = \"$version\"" "$(tail -n 1 "$zip/python/zel/_version.py")"
}

says_its_licence() {
  set -e
  local package zip full=/usr/share/common-licenses/Apache-2.0
  zip=$(echo "$work"/zip/*)
  for package in libzel0 libzel-dev libzel-tools python3-libzel zelgate; do
    grep -x 'SPDX-License-Identifier: Apache-2.0' "$root/usr/share/doc/$package/copyright"
    grep "$full" "$root/usr/share/doc/$package/copyright"
  done
  grep -x 'License: Apache-2.0' "$root"/usr/lib/python3/dist-packages/zel-*.egg-info/PKG-INFO
  cmp "$tree/LICENSE" "$zip/LICENSE.txt"
  cmp "$full" "$zip/share/doc/libzel/LICENSES/Apache-2.0.txt"
  cmp "$tree/LICENSE" "$work"/sources/libzel-*/LICENSE
  cmp "$full" "$work"/sources/libzel-*/LICENSES/Apache-2.0.txt
}

links_on_windows() { "$here/outside.sh" windows "$(echo "$work"/zip/*)" "$work/windows"; }

# As the vendor's compiler would: its object format and calling of the linker, without its headers and runtime.
links_by_the_vendors_library() {
  set -e
  local folder
  folder=$(echo "$work"/zip/*)
  mkdir "$work/vendor"
  cd "$work/vendor"
  clang --target=x86_64-pc-windows-msvc -ffreestanding -fno-stack-protector -I "$folder/include" -c \
    "$here/outside/bare.c" -o bare.obj
  lld-link /nologo /entry:Main /subsystem:console /nodefaultlib bare.obj "$folder/lib/libzel.lib" /out:bare.exe
  cp "$folder/bin/libzel.dll" .
  "$tree/tests/lab/lab.sh" --wine -- ./bare.exe
}

runs_on_windows() {
  "$tree/tests/lab/lab.sh" --sim "0 --listen 127.0.0.1:9999 --no-discovery" --wine -- "$(echo "$work"/zip/*/bin/zel.exe)" \
    request 127.0.0.1.0.1 --port 600 --group 1 --offset 2 "from an archive" | grep "from an archive"
}

wheels_work() { "$here/wheels.sh" "$packages" "$work/wheels" "$(echo "$work"/zip/*/bin/zel.exe)"; }

removes() {
  set -e
  dpkg --root="$root" --force-script-chrootless --purge libzel-dev libzel-tools{-dbgsym,} python3-libzel \
    zelgate{-dbgsym,} libzel0{-dbgsym,}
  [ -z "$(find "$root/usr" -type f)" ] || fail "left: $(find "$root/usr" -type f)"
}

rm -rf "$work"
mkdir -p "$work"
names=(makes_packages makes_the_same_again pleases_lintian installs tells_debuggers unpacks_for_windows opens_on_windows
  configures_the_sources holds_no_build_path has_one_version says_its_licence links_on_linux runs_the_tools runs_python
  links_on_windows links_by_the_vendors_library runs_on_windows wheels_work removes)
for name in "${names[@]}"; do
  if [ "$quick" = yes ] && [ "$name" = makes_the_same_again ]; then continue; fi
  check "$name" "$name"
  # Without packages there is nothing to test.
  if [ "$name" = makes_packages ] && [ "$failed" != 0 ]; then break; fi
done
echo "$(((total - failed) * 100 / total))% tests passed, $failed tests failed out of $total"
[ "$failed" = 0 ]
