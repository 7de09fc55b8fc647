#!/bin/bash
# Makes the packages in build/packages: Debian packages, an archive for Windows, the sources, and their checksums.
# The same commit gives the same bytes. Says nothing when all is well; logs are in build/package.
set -euo pipefail
cd "$(dirname "$0")"
build=$PWD/build/package
packages=$PWD/build/packages
mkdir -p "$build"
scripts/bootstrap.sh

version=$(sed -n 's/^project(libzel VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
export SOURCE_DATE_EPOCH TZ=UTC LC_ALL=C.UTF-8
umask 022

# step NAME COMMAND...: quiet unless it fails.
step() {
  local log=$build/${1// /-}.log
  "${@:2}" >"$log" 2>&1 && return
  tail -n 40 "$log" >&2
  echo "package.sh: $1 failed; everything is in $log" >&2
  exit 1
}

# make SYSTEM CMAKE-OPTION...: builds for a system and lets CPack make its packages.
make() {
  local system=$1 flags="-ffile-prefix-map=$PWD=."
  shift
  step "configuring $system" cmake -G Ninja -S . -B "$build/$system" -DCMAKE_BUILD_TYPE=Release -DZEL_BUILD_TOOLS=ON \
    -DZEL_PACKAGE=ON -DCMAKE_C_FLAGS="$flags $hardening" -DCMAKE_CXX_FLAGS="$flags $hardening" \
    -DCMAKE_SHARED_LINKER_FLAGS="-s $linking" -DCMAKE_EXE_LINKER_FLAGS="-s $linking" "$@"
  step "building $system" cmake --build "$build/$system" --parallel "$(nproc)"
  rm -rf "$build/$system/cpack"
  step "packing $system" cpack --config "$build/$system/CPackConfig.cmake" -B "$build/$system/cpack"
  mv "$build/$system"/cpack/*."$kind" "$packages"
}

# The files as they are here, so that what is packed and what is built are the same.
pack_sources() {
  git ls-files -z | tar --create --null --files-from=- --sort=name --format=gnu --mtime="@$SOURCE_DATE_EPOCH" \
    --owner=0 --group=0 --numeric-owner --mode=u=rwX,go=rX --transform="s,^,libzel-$version/,S" | gzip -9n \
    >"$packages/libzel-$version.tar.gz"
}

rm -rf "$packages"
mkdir -p "$packages"
hardening="-fstack-protector-strong -D_FORTIFY_SOURCE=2 -Wformat -Werror=format-security" linking="-Wl,-z,relro,-z,now"
kind=deb make linux -DCMAKE_INSTALL_PREFIX=/usr
hardening="" linking=""
kind=zip make windows --toolchain cmake/mingw-w64.cmake
pack_sources
(cd "$packages" && sha256sum -- * >SHA256SUMS)
