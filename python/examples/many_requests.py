"""Several threads ask a device on one connection, while one more request is not waited for:

many_requests.py DEVICE PORT SLOW_PORT

Each thread asks PORT, where a device answers with what it was sent. SLOW_PORT is asked without waiting, and given up when
the threads are done.
"""

import sys
from concurrent.futures import ThreadPoolExecutor

import zel

if len(sys.argv) != 4:
    sys.exit(__doc__)
port, slow_port = int(sys.argv[2]), int(sys.argv[3])


def ask(number):
    question = f"question {number}".encode()
    return connection.request(port, question, timeout=5) == question


try:
    with zel.Connection(sys.argv[1]) as connection:
        slow = connection.submit(slow_port, b"slow", timeout=5)
        with ThreadPoolExecutor(4) as threads:
            right = sum(threads.map(ask, range(400)))
        if slow.cancel():
            print("the slow one was given up", file=sys.stderr)
        else:
            print("the slow one answered", len(slow.result()), "bytes", file=sys.stderr)
except zel.ZelError as error:
    sys.exit(f"{error}{', may be sent' if error.may_be_sent else ''}")
print(right, "of 400 answers were right", file=sys.stderr)
