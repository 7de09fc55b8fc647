#!/bin/bash
# bootstrap.sh WORK: what scripts/bootstrap.sh does while it installs, seen by an apt-get of the test's own that asks as a
# package does whether a service may start. Nothing is installed.
set -euo pipefail
tree=$(cd "$(dirname "$0")/../.." && pwd)
work=$1
rm -rf "$work"
mkdir -p "$work/bin" "$work/tree/scripts"
cp "$tree/scripts/bootstrap.sh" "$work/tree/scripts"
echo nats-server >"$work/tree/packages.txt"
export ZEL_POLICY_PROGRAM=$work/policy ZEL_SAID=$work/said
export PATH=$work/bin:$PATH

fail() {
  echo "bootstrap: $*" >&2
  [ ! -e "$ZEL_SAID" ] || cat "$ZEL_SAID" >&2
  exit 1
}

# program NAME: one in place of the system's; what it does comes by standard input.
program() {
  { echo '#!/bin/bash' && cat; } >"$work/bin/$1"
  chmod 755 "$work/bin/$1"
}

program dpkg-query <<'END'
[ "$1" != -L ] || printf '%s\n' /usr/bin/nats-server /lib/systemd/system/nats-server.service
END
program apt-get <<'END'
echo "apt-get $1" >>"$ZEL_SAID"
[ "$1" = install ] || exit 0
answer=0
"$ZEL_POLICY_PROGRAM" nats-server start || answer=$?
echo "policy $answer" >>"$ZEL_SAID"
exit "${ZEL_APT_STATUS:-0}"
END
for name in systemctl sudo; do
  program "$name" <<<"echo \"$name \$*\" >>\"\$ZEL_SAID\"; [ $name != sudo ] || exec \"\$@\""
done

said() { grep -qx "$1" "$ZEL_SAID" || fail "nobody said '$1'"; }

"$work/tree/scripts/bootstrap.sh" >"$work/output"
said "apt-get install"
said "policy 101"
said "systemctl disable nats-server.service"
[ ! -e "$work/policy" ] || fail "the policy stays when all is installed"

rm "$ZEL_SAID"
if ZEL_APT_STATUS=1 "$work/tree/scripts/bootstrap.sh" >"$work/output" 2>&1; then fail "a failed apt-get is a success"; fi
said "policy 101"
[ ! -e "$work/policy" ] || fail "the policy stays when an installation fails"

# A policy of the machine's own: one that forbids everything is kept, with another one nothing is installed.
rm "$ZEL_SAID"
printf '#!/bin/sh\nexit 101\n' >"$work/policy"
chmod 755 "$work/policy"
"$work/tree/scripts/bootstrap.sh" >"$work/output"
said "apt-get install"
[ -e "$work/policy" ] || fail "the machine's own policy is gone"

rm "$ZEL_SAID"
printf '#!/bin/sh\nexit 0\n' >"$work/policy"
if "$work/tree/scripts/bootstrap.sh" >"$work/output" 2>&1; then fail "it installs although services may start"; fi
grep -q "lets services start" "$work/output" || fail "it does not say why: $(cat "$work/output")"
[ ! -e "$ZEL_SAID" ] || fail "it installs although services may start"
echo "no service was started"
