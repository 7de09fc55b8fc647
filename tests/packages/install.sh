#!/bin/bash
# install.sh linux|windows BUILD WORK: installs a build to a folder and builds an outside project against it.
set -euo pipefail
system=$1 build=$2 work=$3
rm -rf "$work"
mkdir -p "$work"
cmake --install "$build" --prefix "$work/prefix" >"$work/install.log"
"$(dirname "$0")/outside.sh" "$system" "$work/prefix" "$work/outside"
