#!/bin/bash
# examples.sh ZELGATE: what the package brings for an administrator is in order: systemd takes the units, and gives them
# little to reach; zelgate takes the configurations.
set -euo pipefail
program=$1
tree=$(cd "$(dirname "$0")/../../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
  echo "examples: $*" >&2
  exit 1
}

# The program is not installed here, and the document isn't either.
for unit in "$tree"/packaging/zelgate/systemd/*; do
  name=$(basename "$unit")
  sed "s,/usr/bin/zelgate,$program," "$unit" >"$work/$name"
  systemd-analyze verify --man=no --recursive-errors=no "${work}/${name/@./@0.}" >"$work/said" 2>&1 || fail "$name: $(cat "$work/said")"
  [ ! -s "$work/said" ] || fail "$name: $(cat "$work/said")"
  # In tenths, of ten.
  systemd-analyze security --offline=true --threshold=20 "$work/$name" >"$work/said" || fail "$name: $(tail -n 1 "$work/said")"
  options=$(sed -n "s,^ExecStart=$program \([a-z]*\) .*,\1,p" "$work/$name")
  "$program" "$options" --help | grep -q -- --config || fail "$name starts with $options"
done
"$program" run --help | grep -q -- --http || fail "there is no --http"

echo secret >"$work/password"
for example in zelgate hub; do
  sed "s,/etc/zelgate/\(hub-\)\?password,$work/password,; s,tls://[a-z0-9.-]*,nats://127.0.0.1,g; s,/etc/zelgate,$work,; s,:4222,:1,g" \
    "$tree/packaging/zelgate/$example.toml" >"$work/$example.toml"
  : >"$work/ca.pem"
  "$program" check --config "$work/$example.toml" >"$work/said" 2>&1 || status=$?
  # The file is read; its authority is an empty one.
  [ "${status:-0}" = 1 ] && grep -q "^ok  *the configuration of the site" "$work/said" || fail "$example.toml: $(cat "$work/said")"
done
echo "units and configurations are in order"
