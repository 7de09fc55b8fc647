"""Asks a device many times at once, while what is published on a topic comes in:  asynchronous.py DEVICE PORT TOPIC"""

import asyncio
import sys

import zel
import zel.aio

if len(sys.argv) != 4:
    sys.exit(__doc__)
device, port, topic = sys.argv[1], int(sys.argv[2]), sys.argv[3]


async def listen(connection):
    async for message in connection.messages(topic):
        print(message.topic, len(message.data), "bytes", file=sys.stderr)


async def ask(connection, number):
    question = f"question {number}".encode()
    return await connection.request(port, question, timeout=5) == question


async def main():
    async with zel.aio.Connection(device) as connection:
        listener = asyncio.create_task(listen(connection))
        right = sum(await asyncio.gather(*(ask(connection, number) for number in range(400))))
        listener.cancel()
        print(right, "of 400 answers were right", file=sys.stderr)


try:
    asyncio.run(main())
except zel.ZelError as error:
    sys.exit(str(error))
