#!/bin/bash
# Shows the library at work: sets the machine up, builds, makes a private network of two hosts, starts a device on one of
# them and runs examples/tour.c on the other, while the device is taken away and brought back. The exit status is 0 when
# everything went as it should. Needs no privilege where the system allows user namespaces.
set -euo pipefail
tree=$(cd "$(dirname "$0")" && pwd)
cd "$tree"
build=build/linux-release
work=build/demo
server=10.77.0.2

give_up() {
  echo "demo: $*" >&2
  exit 1
}

build_all() {
  local log=$work/build.log started=$SECONDS
  [ -f "$build/build.ninja" ] || cmake --preset linux-release >"$log" 2>&1 ||
    { tail -n 20 "$log" >&2; give_up "cannot configure the build; all of it is in $log. Try again after: rm -r $build"; }
  cmake --build "$build" --parallel "$(nproc)" --target libzel zelsim tour >>"$log" 2>&1 ||
    { tail -n 20 "$log" >&2; give_up "cannot build; all of it is in $log. Try again after: rm -r $build"; }
  echo "Built in $((SECONDS - started)) s."
}

start_server() {
  : >"$work/zelsim.log"
  nsenter --net=/run/netns/device1 -- "$build/tools/zelsim/zelsim" --listen $server:9999 --tick 700=200 \
    --device 10.0.0.7.0.1 --host-name press-4 --serial-no 4711-07 --frame self=02-00-5E-00-53-07 \
    --files "$work/received" --transfer-port 701 >"$work/zelsim.log" 2>&1 &
  serverPid=$!
  for ((tries = 0; tries < 500; ++tries)); do
    if grep -qx ready "$work/zelsim.log"; then return; fi
    kill -0 "$serverPid" 2>/dev/null || break
    sleep 0.02
  done
  give_up "the server does not start; it says: $(cat "$work/zelsim.log")"
}

stop_server() {
  kill "$serverPid"
  wait "$serverPid" || true
}

# Follows the tour's lines and does what they ask for.
follow() {
  local line
  while IFS= read -r line; do
    printf '%s\n' "$line"
    case $line in
      "Take the server away.") stop_server ;;
      "Bring it back.") start_server ;;
    esac
  done
}

inside() {
  local tourPid status=0
  echo "Two hosts on a private network: the application at 10.77.0.1, the device at $server."
  mkdir -p "$work/received"
  head -c 400000 /dev/urandom >"$work/file"
  start_server
  mkfifo "$work/lines"
  "$build/examples/tour" "$work/libzel.log" "$work/file" 2>"$work/lines" &
  tourPid=$!
  follow <"$work/lines"
  wait "$tourPid" || status=$?
  stop_server
  if cmp "$work/file" "$work/received/tour.bin"; then
    echo "The file on the device is the same, byte for byte: $(stat -c %s "$work/file") bytes."
  else
    status=1
  fi
  exit "$status"
}

if [ "${1:-}" = --inside ]; then
  inside
fi

rm -rf "$work"
mkdir -p "$work"
scripts/bootstrap.sh || give_up "the packages of packages.txt are needed; install them and start again"
build_all
status=0
tests/lab/lab.sh --hosts 2 -- "$tree/demo.sh" --inside || status=$?
case $status in
  0) echo "The demo went well. The library's own log: $work/libzel.log" ;;
  97) give_up "this system allows no private network; run it as root, or allow user namespaces" ;;
  *) give_up "something went wrong (status $status). The library's own log: $work/libzel.log, the server's: $work/zelsim.log" ;;
esac
