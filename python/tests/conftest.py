"""The device of the lab that these tests run in."""

import os
import pathlib
import queue

import pytest
import zel

PATIENCE = 20


@pytest.fixture
def device():
    return zel.DeviceId.parse("10.77.0.2.0.1")


@pytest.fixture
def connection(device):
    with zel.Connection(device, timeout=5) as made:
        yield made


@pytest.fixture
def lab():
    return pathlib.Path(os.environ["ZEL_LAB"])


@pytest.fixture
def seen():
    """A queue that callbacks put into; its take() waits."""

    class Seen(queue.SimpleQueue):
        def take(self):
            return self.get(timeout=PATIENCE)

    return Seen()
