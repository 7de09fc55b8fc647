"""Prints what is published on topics, until nothing came for a minute:  subscribe.py DEVICE TOPIC..."""

import sys

import zel

if len(sys.argv) < 3:
    sys.exit(__doc__)
with zel.Connection(sys.argv[1], on_event=lambda device, event: print(event.name, file=sys.stderr)) as connection:
    with connection.messages(*sys.argv[2:], timeout=60) as messages:
        for message in messages:
            print(message.topic, message.data.decode(errors="replace"), file=sys.stderr)
