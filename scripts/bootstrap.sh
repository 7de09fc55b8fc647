#!/bin/bash
# Installs the packages of packages.txt that are missing. Says nothing and needs no privilege when none is.
set -euo pipefail
cd "$(dirname "$0")/.."

mapfile -t wanted < <(sed -E 's/#.*//; s/[[:space:]]+//g; /^$/d' packages.txt)

if ! command -v dpkg-query >/dev/null; then
  echo "bootstrap: not a Debian system; packages.txt lists what is needed. Going on with what is here." >&2
  exit 0
fi

installed=$(dpkg-query -W -f='${Package} ${db:Status-Status}\n' "${wanted[@]}" 2>/dev/null || true)
missing=()
for package in "${wanted[@]}"; do
  grep -qx "$package installed" <<<"$installed" || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

root=()
if [ "$(id -u)" != 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "bootstrap: as root, run: apt-get install ${missing[*]}" >&2
    exit 1
  fi
  root=(sudo)
fi

mkdir -p build
log=build/bootstrap.log
echo "Installing ${#missing[@]} packages: ${missing[*]}"
if ! { "${root[@]}" apt-get update &&
  "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"; } \
  >"$log" 2>&1; then
  tail -n 20 "$log" >&2
  echo "bootstrap: could not install ${missing[*]}; everything that apt-get said is in $log" >&2
  exit 1
fi
