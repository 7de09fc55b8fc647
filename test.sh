#!/bin/bash
# Sets the machine up, builds, and runs the tests:
#   ./test.sh [linux|asan|tsan|windows|fuzz|packages [--quick]|links|links-windows|gate|style [--all]]...
# (default: all four systems. When named: fuzz; the packages, which are built anew for it, twice, or once with --quick; slow
# and broken links; fleets under a hundred faults, which takes an hour; style, which only reads the sources, with clang-tidy those that changed since main, or --all)
# The last line says "N passed, N failed"; the exit status is 0 when none failed. Logs are in build/.
set -uo pipefail
cd "$(dirname "$0")" || exit 1

declare -A presets=([linux]=linux-release [asan]=linux-asan [tsan]=linux-tsan [windows]=windows-release)
presets[fuzz]=linux-fuzz
presets[links]=linux-release
presets[gate]=linux-release
presets[links-windows]=windows-release
# These parts make what they need themselves.
declare -A scripts=([packages]=tests/packages/run.sh [style]=tests/style/run.py)
passed=0 failed=0 report=()

say_failure() {
  local what=$1 log=$2
  echo "---- $what failed; the end of $log:"
  tail -n "${3:-40}" "$log"
  echo "---- $what failed; everything is in $log"
}

# The end of a test log shows what passed last; what failed, and why, stands somewhere before it. Of each test that
# failed this prints the verdicts with the lines behind them, and its last lines.
say_failed_tests() {
  local what=$1 log=$2
  echo "---- testing $what failed; of each failed test what $log says:"
  awk '
    { sub(/\r$/, "") }
    function finish() { for (i = n > 15 ? n - 15 : 0; i < n; i++) if (!(i in said)) print last[i]; delete said; n = 0 }
    /^ *[0-9]+\/[0-9]+ Test +#/ { finish(); failing = /\*\*\*/; verdict = 0; if (failing) print; next }
    !failing { next }
    /^[0-9]+% tests passed/ { finish(); failing = 0; next }
    /: Failure$|\[  FAILED  \]|^(FAIL|ERROR):|^Traceback|Error: |Sanitizer:/ { verdict = 7 }
    verdict-- > 0 { print; said[n] = 1 }
    { last[n++] = $0 }
    END { finish() }' "$log" | head -n 200
  sed -n '/^The following tests FAILED:/,$p' "$log"
  echo "---- testing $what failed; everything is in $log"
}

# step NAME LOG COMMAND...: quiet unless it fails.
step() {
  local name=$1 log=$2
  shift 2
  "$@" >"$log" 2>&1 && return
  say_failure "$name" "$log"
  return 1
}

configure_and_build() {
  local preset=$1
  shift
  step "configuring $preset" "build/$preset-configure.log" cmake --preset "$preset" &&
    step "building $preset" "build/$preset-build.log" \
      cmake --build --preset "$preset" --parallel "$(nproc)" "$@"
}

# The other systems' tests talk to the simulator of the Linux build.
prepare() {
  case $1 in
    linux | links | gate) return 0 ;;
    windows | links-windows | packages) step "making the Wine prefix" build/wineprefix.log \
      tests/lab/lab.sh tests/lab/make_wine_prefix.sh "$PWD/build/wineprefix" || return ;;
  esac
  [ -n "${scripts[$1]:-}" ] || configure_and_build linux-release --target zelsim
}

build_tests() { [ -n "${scripts[$1]:-}" ] || configure_and_build "${presets[$1]}"; }

# run_tests NAME PRESET
run_tests() {
  if [ -n "${scripts[$1]:-}" ]; then
    "${scripts[$1]}" "${options[@]}"
    return
  fi
  case $1 in
    links*) ctest --preset "${presets[$1]}" -C links --label-regex '^links$' ;;
    gate) ctest --preset "${presets[$1]}" -C gate --label-regex '^gate$' ;;
    *) ctest --preset "${presets[$1]}" ;;
  esac
}

count() {
  local log=$1 summary
  summary=$(grep -E '^[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$log" | tail -n 1)
  [[ $summary =~ ,\ ([0-9]+)\ tests?\ failed\ out\ of\ ([0-9]+) ]] || return 1
  testsFailed=${BASH_REMATCH[1]} testsPassed=$((BASH_REMATCH[2] - BASH_REMATCH[1]))
}

run() {
  local name=$1 what=${presets[$1]:-$1} log="build/$1-tests.log" testsPassed=0 testsFailed=0 start=$SECONDS
  if prepare "$name" && build_tests "$name"; then
    run_tests "$name" >"$log" 2>&1
    local status=$?
    count "$log" || testsFailed=1
    [ "$status" = 0 ] || [ "$testsFailed" != 0 ] || testsFailed=1
    if [ "$testsFailed" != 0 ]; then
      if [ -n "${scripts[$name]:-}" ]; then
        say_failure "testing $what" "$log" 120
      else
        say_failed_tests "$what" "$log"
        echo "     run one again:  ctest --preset $what --verbose --tests-regex NAME"
      fi
    fi
  else
    testsFailed=1
  fi
  passed=$((passed + testsPassed)) failed=$((failed + testsFailed))
  report+=("$(printf '%-8s %4d passed, %d failed (%d s)' "$name" "$testsPassed" "$testsFailed" $((SECONDS - start)))")
}

names=() options=()
for word in "$@"; do
  if [ "$word" = --all ] || [ "$word" = --quick ]; then
    options+=("$word")
  elif [ -n "${presets[$word]:-}${scripts[$word]:-}" ]; then
    names+=("$word")
  else
    echo "usage: ./test.sh [linux|asan|tsan|windows|fuzz|packages [--quick]|links|links-windows|gate|style [--all]]..." >&2
    exit 2
  fi
done
[ ${#names[@]} -gt 0 ] || names=(linux asan tsan windows)

mkdir -p build
scripts/bootstrap.sh || exit 1
for name in "${names[@]}"; do run "$name"; done
printf '%s\n' "${report[@]}"
echo "$passed passed, $failed failed"
[ "$failed" = 0 ]
