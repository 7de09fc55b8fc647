#!/bin/bash
# Makes the packages in build/packages: Debian packages, an archive for Windows, Python wheels, the sources, and their checksums.
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

# build_for SYSTEM FLAGS LINKER-FLAGS CMAKE-OPTION...: builds from nothing: objects hold the date.
build_for() {
  local system=$1 flags="-ffile-prefix-map=$PWD=. -fno-ident $2" linking=$3
  shift 3
  rm -rf "${build:?}/$system"
  step "configuring $system" cmake -G Ninja -S . -B "$build/$system" -DCMAKE_BUILD_TYPE=Release -DZEL_BUILD_TOOLS=ON \
    -DZEL_PACKAGE=ON -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_SHARED_LINKER_FLAGS="$linking" \
    -DCMAKE_EXE_LINKER_FLAGS="$linking" "$@"
  step "building $system" cmake --build "$build/$system" --parallel "$(nproc)"
}

# What CPack makes is not quite what Debian wants, so every package is unpacked, mended, and packed again.
pack_debian() {
  step "packing linux" cpack --config "$build/linux/CPackConfig.cmake" -B "$build/linux/cpack"
  local package name folder
  for package in "$build"/linux/cpack/*.{deb,ddeb}; do
    name=$(basename "${package%.*}") folder=$build/linux/$name
    dpkg-deb --raw-extract "$package" "$folder"
    case $name in
      libzel0_*) rm "$folder"/DEBIAN/{postinst,postrm} ;; # they call ldconfig; the package has a trigger instead
      *-dbgsym_*) mend_symbols "$folder" "${name%%_*}" ;;
    esac
    step "packing $name" dpkg-deb --root-owner-group -Zxz --build "$folder" "$packages/$name.deb"
  done
}

# A package of debug information has checksums that name the folder it was made in, and no licence.
mend_symbols() {
  local folder=$1 name=$2
  sed -i '/^Package-Type:/d' "$folder/DEBIAN/control"
  find "$folder/usr" -type f -exec chmod 644 {} +
  mkdir -p "$folder/usr/share/doc"
  ln -s "${name%-dbgsym}" "$folder/usr/share/doc/$name"
  (cd "$folder" && find usr -type f -print0 | sort -z | xargs -0 md5sum >DEBIAN/md5sums)
  find "$folder" -exec touch --no-dereference --date="@$SOURCE_DATE_EPOCH" {} +
}

pack_windows() {
  local name=libzel-$version-windows-x64
  step "installing windows" cmake --install "$build/windows" --prefix "$build/windows/zip/$name"
  step "building the documents" docs/build.sh "$build/docs"
  cp -R "$build/docs/html" "$build/windows/zip/$name/share/doc/libzel"
  cd "$build/windows/zip"
  find . -exec touch --date="@$SOURCE_DATE_EPOCH" {} +
  find "$name" -type f | sort | step "packing windows" zip -9 -X -@ "$packages/$name.zip"
  cd "$OLDPWD"
}

# The files as they are here, so that what is packed and what is built are the same, and the licence's full text.
pack_sources() {
  local licences=$build/sources/LICENSES
  mkdir -p "$licences"
  cp /usr/share/common-licenses/Apache-2.0 "$licences/Apache-2.0.txt"
  git ls-files -z | tar --create --sort=name --format=gnu --mtime="@$SOURCE_DATE_EPOCH" \
    --owner=0 --group=0 --numeric-owner --mode=u=rwX,go=rX --transform="s,^,libzel-$version/,S" \
    --directory="$build/sources" LICENSES/Apache-2.0.txt --directory="$PWD" --null --files-from=- | gzip -9n \
    >"$packages/libzel-$version.tar.gz"
}

# make_wheel PLATFORM LIBRARY NAME NOTICE
make_wheel() {
  step "packing the wheel for $1" packaging/wheel.py "$packages" "$version" "$1" "$2" "$3" LICENSE \
    /usr/share/common-licenses/Apache-2.0 "$4"
}

rm -rf "$packages"
mkdir -p "$packages"
# With debug information, which becomes packages of its own.
build_for linux "-g -gz -fstack-protector-strong -D_FORTIFY_SOURCE=2" "-gz -Wl,-z,relro,-z,now" -DCMAKE_INSTALL_PREFIX=/usr
pack_debian
build_for windows "" -s --toolchain cmake/mingw-w64.cmake
pack_windows
# With the C++ runtime inside. What of that is not used goes: it may want a newer C library than the wheel says.
build_for wheel "-fstack-protector-strong -D_FORTIFY_SOURCE=2" "-s -static-libstdc++ -Wl,-z,relro,-z,now,--gc-sections" \
  -DZEL_BUILD_TOOLS=OFF -DZEL_PACKAGE=OFF
make_wheel manylinux_2_34_x86_64 "$build/wheel/src/libzel.so.$version" libzel.so.0 /usr/share/doc/libstdc++6/copyright
make_wheel win_amd64 "$build/windows/bin/libzel.dll" libzel.dll "$build/windows/packaging/COPYRIGHT.txt"
pack_sources
(cd "$packages" && sha256sum -- * >SHA256SUMS)
