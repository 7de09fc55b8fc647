#!/bin/bash
# Does what docs/start.md says:  run_start.sh BUILD
# Compiles the program as shown there and runs it, runs the commands for those who have no device, and looks for every
# line that the page shows.
set -euo pipefail
tree=$(cd "$(dirname "$0")/../.." && pwd)
build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$tree"

# block WORD: the block of code of the page that begins with a word.
block() {
  awk -v word="$1" '
    /^```/ { if (open && found) exit; open = !open; found = first = open; next }
    open && first { first = 0; found = index($0, word) == 1 }
    open && found { print }' docs/start.md
}

compile=$(block gcc | sed -E "/^\.\/ask/d; s|(\\\$PWD/)?build/linux-release|$build|g; s|-o ask|-o $work/ask|")
[[ $compile == gcc*docs/examples/ask.c* ]] || { echo "no compiler's line in docs/start.md"; exit 1; }
echo "$compile"
bash -euc "$compile"

commands=$(block tests/lab/lab.sh)
shown=$(block IDENTIFIER)
[[ $commands == tests/lab/lab.sh* && $shown == *hello* ]] || { echo "no commands in docs/start.md"; exit 1; }
echo "$commands"
PATH=$build/tools/zel:$PATH bash -euc "$commands" >"$work/output" 2>"$work/log" || { cat "$work/log"; exit 1; }
cat "$work/output"
diff <(echo "$shown") "$work/output"

# The simulator on the loopback address, as it is without the source tree: when it listens, it answers.
alone=$(block zelsim)
[[ $alone == zelsim*"&"*zel\ request* ]] || { echo "no zelsim in docs/start.md"; exit 1; }
PATH=$build/tools/zelsim:$build/tools/zel:$PATH tests/lab/lab.sh -- bash -c "
  ${alone%%&*} & sim=\$!
  for i in {1..100}; do if answer=\$(${alone#*&}); then break; fi; sleep 0.1; done
  kill \$sim
  echo \"\$answer\"
  [ \"\$answer\" = hello ]" 2>"$work/log" || { cat "$work/log"; exit 1; }

# The compiled program, against the same device.
sim=$(sed -n 's/^  --sim "\(.*\)" \\$/\1/p' <<<"$commands")
answer=$(tests/lab/lab.sh --hosts 2 --sim "$sim" -- "$work/ask" 10.77.0.2.0.1 600 hello 2>&1 >/dev/null)
echo "$answer"
[ "$answer" = hello ]
