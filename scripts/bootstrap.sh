#!/bin/bash
# Installs the packages of packages.txt that are missing. Says nothing and needs no privilege when none is. No service is
# started, now or when the machine starts; those that run go on.
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

# Debian asks this program before a package starts, stops or restarts a service; 101 is no.
policy=${ZEL_POLICY_PROGRAM:-/usr/sbin/policy-rc.d}

forbid_services() {
  local answer=0
  if [ -e "$policy" ]; then
    "$policy" nats-server start >/dev/null 2>&1 || answer=$?
    [ "$answer" != 101 ] || return 0
    echo "bootstrap: $policy is there and lets services start. So that none does, nothing was installed. Install" >&2
    echo "  these yourself: ${missing[*]}" >&2
    exit 1
  fi
  trap '"${root[@]}" rm -f "$policy"' EXIT
  printf '#!/bin/sh\nexit 101\n' | "${root[@]}" tee "$policy" >/dev/null
  "${root[@]}" chmod 755 "$policy"
}

# Packages have their services start with the machine, too.
disable_services() {
  local unit
  command -v systemctl >/dev/null || return 0
  dpkg-query -L "${missing[@]}" | sed -nE 's,^(/usr)?/lib/systemd/system/([^/@]+[.]service)$,\2,p' |
    while read -r unit; do "${root[@]}" systemctl disable "$unit" </dev/null; done
}

mkdir -p build
log=build/bootstrap.log
echo "Installing ${#missing[@]} packages: ${missing[*]}"
forbid_services
if ! { "${root[@]}" apt-get update &&
  "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}" &&
  disable_services; } \
  >"$log" 2>&1; then
  tail -n 20 "$log" >&2
  echo "bootstrap: could not install ${missing[*]}; everything that apt-get said is in $log" >&2
  exit 1
fi
