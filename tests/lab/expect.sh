#!/bin/bash
# Runs a command, its standard input empty, and looks at what it says and leaves behind.
#
#   expect.sh [--status N] [--line REGEX]... [--same FILE FILE]... -- COMMAND [ARGUMENT...]
#
#   --status N        the command's exit status. Default 0.
#   --line REGEX      a line of its standard error, where the library's log does not come, that matches as grep -E
#                     does. Those given come in this order, other lines may stand between. A carriage return ends a
#                     line too.
#   --same FILE FILE  two files are the same when it is done. The second one is removed before it starts.
set -uo pipefail

status=0 lines=() same=()
while [ "$1" != -- ]; do
  case $1 in
    --status) status=$2; shift 2 ;;
    --line) lines+=("$2"); shift 2 ;;
    --same) same+=("$2" "$3"); rm -f "$3"; shift 3 ;;
    *) echo "expect: unknown option $1" >&2; exit 2 ;;
  esac
done
shift

exec 3>&1
errors=$("$@" 2>&1 >&3 </dev/null)
got=$?
errors=${errors//$'\r'/$'\n'}
printf '%s\n' "$errors"
result=0
complain() {
  echo "expect: $*" >&2
  result=1
}

[ "$got" = "$status" ] || complain "the exit status is $got, not $status"
rest=$errors
for line in "${lines[@]}"; do
  number=$(grep -nE -m 1 -e "$line" <<<"$rest" | cut -d: -f1)
  if [ -z "$number" ]; then
    complain "no line (from there on) matches: $line"
    break
  fi
  rest=$(tail -n +"$((number + 1))" <<<"$rest")
done
for ((pair = 0; pair < ${#same[@]}; pair += 2)); do
  cmp "${same[pair]}" "${same[pair + 1]}" >&2 || complain "the files are not the same"
done
exit "$result"
