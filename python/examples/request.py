"""Asks a device and prints its answer:  request.py DEVICE PORT TEXT"""

import sys

import zel

if len(sys.argv) != 4:
    sys.exit(__doc__)
try:
    with zel.Connection(sys.argv[1]) as connection:
        answer = connection.request(int(sys.argv[2]), sys.argv[3].encode(), timeout=2)
except zel.ZelError as error:
    sys.exit(str(error))
print(answer.decode(errors="replace"), file=sys.stderr)
