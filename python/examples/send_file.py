"""Sends a file to a device and shows how far it is:  send_file.py DEVICE PORT FILE REMOTE"""

import sys

import zel

if len(sys.argv) != 5:
    sys.exit(__doc__)


def show(step):
    print(f"\r{step.progress:.0%}", end="", file=sys.stderr)


try:
    zel.send_file(sys.argv[1], int(sys.argv[2]), sys.argv[3], sys.argv[4], show).wait()
except zel.ZelError as error:
    sys.exit(f"\n{error}")
print("\nsent", file=sys.stderr)
