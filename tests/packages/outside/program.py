"""As program.c, by the Python package."""
import sys

import zel

with zel.Connection("127.0.0.1.0.1") as connection:
    answer = connection.request(600, b"hello from Python", timeout=2)
print("libzel answers:", bytes(answer).decode(), file=sys.stderr)
sys.exit(bytes(answer) != b"hello from Python")
