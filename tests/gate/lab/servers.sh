#!/bin/bash
# Prepares the servers of a fleet, as packaging/zelgate/nats has them, and runs a command. To be run in a lab
# (tests/lab/lab.sh) with hosts enough:
#
#   0 the command's   1 to 3 hub-1, hub-2, hub-3   4 north   5 south   6 to 8 north-1, north-2, north-3
#
# Each host is called NAME.zel.example. server.sh starts a server; $ZEL_LAB/nats/NAME has its certificate and its
# passwords, and after a start its log and what it keeps. $ZEL_LAB/nats/ca.pem is whom all trust, passwords are USER-pass.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
tree=$(cd "$here/../../.." && pwd)
. "$tree/tests/lab/cover.sh"
. "$here/certificates.sh"
work=$ZEL_LAB/nats
names=(command hub-1 hub-2 hub-3 north south north-1 north-2 north-3)

# The example's passwords, but each one its own.
write_passwords() {
  local name=$1 kind=site
  [[ $name != hub-* ]] || kind=hub
  sed -E 's/^([A-Z]+)_PASSWORD: "change-me"$/\1_PASSWORD: "\L\1-pass"/' \
    "$tree/packaging/zelgate/nats/$kind-passwords.conf" >"$work/$name/$kind-passwords.conf"
  ! grep -q change-me "$work/$name/$kind-passwords.conf"
}

write_hosts() {
  local host
  cat /etc/hosts
  for host in "${!names[@]}"; do echo "10.77.0.$((host + 1)) ${names[host]}.zel.example"; done
}

mkdir "$work"
make_authority ca "A lab's authority"
make_authority stranger "Somebody else's authority"
for name in "${names[@]:1}"; do
  case $name in
    north-*) make_certificate ca "$name" north.zel.example "$name.zel.example" ;;
    *) make_certificate ca "$name" "$name.zel.example" ;;
  esac
  write_passwords "$name"
done
write_hosts >"$work/hosts"
mount --bind "$work/hosts" /etc/hosts
cover /etc nats
cover /var/lib nats
mkdir /etc/nats /var/lib/nats
exec "$@"
