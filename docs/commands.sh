#!/bin/bash
# Writes the pages of the tool's commands, docs/tool/*.md, as the program has them:  docs/commands.sh [FOLDER]
# $ZEL_PROGRAM names the program; it loads the library, so it runs where no network is.
set -euo pipefail
cd "$(dirname "$0")/.."
program=${ZEL_PROGRAM:-build/linux-release/tools/zel/zel}
out=${1:-docs/tool}
mkdir -p "$out"
for command in $(sed -nE 's/^\| \[zel (\w+)\].*/\1/p' docs/tool.md); do
  tests/lab/lab.sh --hosts 0 -- "$program" --generate "page:$command" >"$out/$command.md"
done
