#!/bin/bash
# Tests the wheels as their users get them: the one for Linux in an empty virtual environment, the one for Windows unpacked,
# with its DLL under Wine.
#
#   wheels.sh PACKAGES WORK ZEL.EXE
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
lab=$here/../lab/lab.sh
packages=$1 work=$2 program=$3
# What pip may look at is in the packages alone.
export PIP_NO_INDEX=1 PIP_DISABLE_PIP_VERSION_CHECK=1 PIP_NO_CACHE_DIR=1

fail() {
  echo "$*" >&2
  exit 1
}

rm -rf "$work"
mkdir -p "$work"
linux=$(echo "$packages"/zel-*-py3-none-manylinux_2_34_x86_64.whl)
windows=$(echo "$packages"/zel-*-py3-none-win_amd64.whl)

echo "---- What the library in the wheel for Linux needs"
unzip -q "$linux" -d "$work/linux"
library=$work/linux/zel/libzel.so.0
newest=$(objdump -T "$library" | grep -oE 'GLIBC_[0-9.]+' | sort -uV | tail -n 1)
echo "$newest"
[ "$(printf '%s\n' "$newest" GLIBC_2.34 | sort -V | tail -n 1)" = GLIBC_2.34 ] || fail "it needs $newest"
needed=$(objdump -p "$library" | awk '$1 == "NEEDED" {print $2}' | sort | tr '\n' ' ')
[ "$needed" = "ld-linux-x86-64.so.2 libc.so.6 libgcc_s.so.1 libm.so.6 " ] || fail "it needs $needed"
! grep -qF "$(cd "$here/../.." && pwd)" "$library" || fail "it names the folder that it was built in"

echo "---- An empty virtual environment"
/usr/bin/python3 -m venv "$work/venv"
"$work/venv/bin/pip" install "$linux"
"$work/venv/bin/pip" check
"$work/venv/bin/pip" show --files zel
cd "$work"
"$lab" --sim "0 --listen 127.0.0.1:9999 --no-discovery" -- env -i PATH=/usr/bin "$work/venv/bin/python" -I - <<'PYTHON'
import asyncio
import importlib.metadata
import pathlib
import sys

import zel
import zel.aio


async def ask():
    async with zel.aio.Connection("127.0.0.1.0.1", timeout=5) as connection:
        return await connection.request(600, b"asked by a task", timeout=5)


with zel.Connection("127.0.0.1.0.1", timeout=5) as connection:
    assert connection.request(600, b"from a wheel", timeout=5) == b"from a wheel"
assert asyncio.run(ask()) == b"asked by a task"
mapped = {line.split()[-1] for line in open("/proc/self/maps") if "libzel" in line}
assert mapped == {str(pathlib.Path(zel.__file__).parent / "libzel.so.0")}, mapped
assert pathlib.Path(sys.prefix) in pathlib.Path(zel.__file__).parents, zel.__file__
assert zel.__version__ == importlib.metadata.version("zel"), zel.__version__
print("zel", zel.__version__, "answered from", *mapped)
PYTHON
"$work/venv/bin/pip" uninstall --yes zel
[ -z "$(find "$work/venv" -path '*zel*' -not -path '*/__pycache__*' -type f)" ] || fail "files are left"

echo "---- The wheel for Windows"
unzip -q "$windows" -d "$work/windows"
[ -s "$work/windows/zel/aio.py" ] || fail "no modules"
(cd "$work/linux" && find zel -name '*.py' -exec cmp {} "$work/windows/{}" \;) | grep . && fail "they are others than on Linux"
cp "$program" "$work/windows/zel"
"$lab" --sim "0 --listen 127.0.0.1:9999 --no-discovery" --wine -- "$work/windows/zel/$(basename "$program")" \
  request 127.0.0.1.0.1 --port 600 --group 1 --offset 2 "by a wheel's DLL" | grep "by a wheel's DLL"
echo "all went well"
