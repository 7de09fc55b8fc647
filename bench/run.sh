#!/bin/bash
# Builds the library and its benchmarks, runs them in a network of their own, and prints one table:
#   bench/run.sh [--quick]
# Every row has the library's figure and, where there is one, that of a raw program and the ratio of the two.
# Every figure of the library stands beside one of a raw socket (or the runtime's own output) that did the same work in
# rounds in between, on the same machine in the same minute: the ratios say more than the figures.
set -euo pipefail
tree=$(cd "$(dirname "$0")/.." && pwd)
build=${ZEL_BENCH_BUILD:-$tree/build/linux-release}
work=$build/bench/run

build_all() {
  mkdir -p "$work"
  if ! { (cd "$tree" && cmake --preset linux-release && cmake --build "$build" --target bench zelsim -j2); } \
    >"$work/build.log" 2>&1; then
    tail -n 20 "$work/build.log" >&2
    echo "bench: the build failed; all of it is in $work/build.log" >&2
    exit 1
  fi
}

start_sim() {
  mkdir -p "$work/received"
  "$build/tools/zelsim/zelsim" --listen 127.0.0.3:9999 --listen 127.0.0.5:9999 \
    --burst load=1000000:64 --files "$work/received" >"$work/sim.log" 2>&1 &
  simPid=$!
  trap 'kill "$simPid" 2>/dev/null || true' EXIT
  for ((tries = 0; tries < 500; ++tries)); do
    if grep -qx ready "$work/sim.log"; then return; fi
    kill -0 "$simPid" || break
    sleep 0.02
  done
  echo "bench: zelsim is not ready: $(cat "$work/sim.log")" >&2
  exit 1
}

log_lines() {
  "$build/bench/bench_log_line" --benchmark_repetitions="$1" --benchmark_min_time=0.3 \
    --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true \
    --benchmark_out="$work/log_line.json" --benchmark_out_format=json >"$log" 2>"$work/log_line.err"
  python3 - "$work/log_line.json" <<'PYTHON'
import json, sys
runs = json.load(open(sys.argv[1]))["benchmarks"]
time = {run["run_name"]: run["real_time"] for run in runs if run["aggregate_name"] == "median"}
ours, printf = time["WrittenLine"], time["RuntimePrintf"]
print("%-30s %9.2f %-9s  raw %9.2f   ratio %.2f" % ("log line, against printf", ours, "ns", printf, ours / printf))
print("%-30s %9.2f ns" % ("suppressed log line", time["SuppressedLine"]))
PYTHON
}

parsers() {
  "$build/bench/bench_parsers" --benchmark_repetitions="$1" --benchmark_min_time=0.1 \
    --benchmark_enable_random_interleaving=true \
    --benchmark_report_aggregates_only=true --benchmark_out="$work/parsers.json" --benchmark_out_format=json \
    >"$log" 2>"$work/parsers.err"
  python3 - "$work/parsers.json" <<'PYTHON'
import json, sys
runs = json.load(open(sys.argv[1]))["benchmarks"]
run = {run["run_name"]: run for run in runs if run["aggregate_name"] == "median"}
ours, theirs = run["ParseAnswer"]["cpu_time"] / 1e3, run["ParseAnswerElsewhere"]["cpu_time"] / 1e3
name = "JSON, %d B, against nlohmann" % run["ParseAnswer"]["bytes"]
print("%-30s %9.2f %-9s  raw %9.2f   ratio %.2f" % (name, ours, "us", theirs, ours / theirs))
for name, key in (("discovery answer to callback", "HandleAnswer"), ("identifier parsed", "ParseIdentifier"),
                  ("identifier printed", "PrintIdentifier")):
    print("%-30s %9.2f ns" % (name, run[key]["real_time"]))
PYTHON
}

# Hosts and links of their own, inside this network.
in_lab() { ZELSIM=$build/tools/zelsim/zelsim "$tree/tests/lab/lab.sh" "$@"; }

# slow_links ROUNDS SECONDS
slow_links() {
  local rate
  for rate in 1 10 100; do
    in_lab --hosts 2 --link "${rate}mbit" --sim "1 --listen 0.0.0.0:9999 --burst load=0:640" -- \
      "$build/bench/bench_slow_link" "$log" "$rate Mbit/s" "$1" "$2"
  done
}

# away DELAY COMMAND...: beside a server that a relay takes DELAY to reach in each direction.
away() {
  in_lab --hosts 3 --sim "1 --relay 10.77.0.2:9999=10.77.0.3:9999,delay:$1" --sim "2 --listen 0.0.0.0:9999" -- "${@:2}"
}

# distances ROUNDS
distances() {
  local way
  for way in "0.2 ms=100us" "1 ms=500us"; do
    away "${way#*=}" "$build/bench/bench_distance" "$log" "${way%=*}" "$1"
    away "${way#*=}" "$build/bench/bench_requests" "$log" "$1" away "${way%=*}"
  done
}

# System calls of the library's side for each request and answer: what a run of many has over a run of few.
system_calls() {
  command -v strace >/dev/null || { echo "system calls          strace is not here"; return; }
  local few=1000 many=11000 calls=() requests
  for requests in $few $many; do
    strace -c -S name -o "$work/strace.$requests" "$build/bench/bench_round_trip" "$log" 1 "$requests"
  done
  calls=()
  for name in sendto sendmsg recvfrom poll futex total; do
    calls+=("$(awk -v name="$name" -v few=$few -v many=$many '
      $NF == name { count[FNR == NR ? 0 : 1] = $4 }
      FNR == 1 { ++file }
      $NF == name { seen[file] = $4 }
      END { printf "%s %.2f", name, (seen[2] - seen[1]) / (many - few) }' \
      "$work/strace.$few" "$work/strace.$many")")
  done
  local IFS=,
  echo "system calls for each request and answer (under strace): ${calls[*]}"
}

inside() {
  ip link set lo up
  log=$work/library.log
  local rounds=15 slowRounds=6 slowSec=10 statBefore
  statBefore=$(head -n 1 /proc/stat)
  [ "${1:-}" != --quick ] || rounds=3 slowRounds=1 slowSec=5
  echo "$(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | xargs), $(nproc) cores, Linux $(uname -r), load $(cut -d' ' -f1 /proc/loadavg)"
  "$build/bench/bench_round_trip" "$log" "$rounds"
  "$build/bench/bench_round_trip" "$log" "$rounds" one-core
  distances "$rounds"
  "$build/bench/bench_requests" "$log" "$rounds"
  start_sim
  "$build/bench/bench_topics" "$log" "$rounds"
  "$build/bench/bench_publish" "$log" "$rounds"
  "$build/bench/bench_publish_many" "$log" "$rounds"
  "$build/bench/bench_direct_request" "$log" "$rounds"
  "$build/bench/bench_file_transfer" "$log" "$work" "$rounds"
  slow_links "$slowRounds" "$slowSec"
  log_lines "$rounds"
  parsers "$rounds"
  "$build/bench/bench_idle" "$log"
  system_calls
  rm -f "$log"
  echo "the machine's host took away $(stolen_percent "$statBefore") % of its time"
}

# Of all time since the first line of /proc/stat was `$1`.
stolen_percent() {
  { echo "$1"; head -n 1 /proc/stat; } | awk '
    { total[NR] = 0; for (i = 2; i <= 9; ++i) total[NR] += $i; stolen[NR] = $9 }
    END { printf "%.1f", 100 * (stolen[2] - stolen[1]) / (total[2] - total[1]) }'
}

if [ "${1:-}" = --inside ]; then
  shift
  inside "$@"
else
  [ -n "${ZEL_BENCH_BUILD:-}" ] || build_all
  mkdir -p "$work"
  user=()
  [ "$(id -u)" = 0 ] || user=(--user --map-root-user)
  exec unshare "${user[@]}" --net --mount --pid --fork --kill-child --mount-proc -- "$0" --inside "$@"
fi
