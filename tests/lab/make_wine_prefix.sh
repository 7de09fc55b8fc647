#!/bin/bash
# Makes the Wine prefix that every lab starts from: make_wine_prefix.sh DIRECTORY. Runs in a lab. A prefix that is there
# is kept.
set -euo pipefail
prefix=$1
[ ! -d "$prefix" ] || exit 0

rm -rf "$prefix.new"
mkdir -p "/tmp/.wine-$(id -u)"
mount -t tmpfs -o mode=700 lab "/tmp/.wine-$(id -u)"
export WINEPREFIX=$prefix.new WINEDEBUG=-all WINEDLLOVERRIDES="mscoree=d;mshtml=d"
unset DISPLAY WAYLAND_DISPLAY
wineboot --init
wineserver --wait
# The prefix is whole; a lab never updates it.
echo disable >"$prefix.new/.update-timestamp"
mv "$prefix.new" "$prefix"
