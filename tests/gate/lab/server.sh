#!/bin/bash
# server.sh NAME [ARGUMENT...]: becomes the server NAME of servers.sh, on its host, with what it kept before. It
# runs with the example as it stands, but for what that says to be each server's own, and the name of another site.
# $ZEL_SERVER_CHANGE may be a sed expression that changes it more.
set -euo pipefail
tree=$(cd "$(dirname "$0")/../../.." && pwd)
name=$1
shift
if [ "${ZEL_SERVER_INSIDE:-}" != yes ]; then
  case $name in
    hub-*) host=${name#hub-} ;;
    north) host=4 ;;
    south) host=5 ;;
    north-*) host=$((5 + ${name#north-})) ;;
    *) echo "server.sh: there is no $name" >&2; exit 97 ;;
  esac
  ZEL_SERVER_INSIDE=yes exec nsenter --net="/run/netns/device$host" -- unshare --mount -- "$0" "$name" "$@"
fi

own=$ZEL_LAB/nats/$name
case $name in
  hub-*) example=hub change="/each server its own/s/\bhub-1\b/$name/" ;;
  north-*) example=site-of-three change="/each server its own/s/\bnorth-1\b/$name/" ;;
  *) example=site change="s/\bnorth\b/$name/g" ;;
esac
mkdir -p "$own/kept"
sed -e "$change" -e "${ZEL_SERVER_CHANGE:-}" "$tree/packaging/zelgate/nats/$example.conf" >"$own/server.conf"
mount --bind "$own" /etc/nats
mount --bind "$own/kept" /var/lib/nats
exec nats-server --config /etc/nats/server.conf "$@"
