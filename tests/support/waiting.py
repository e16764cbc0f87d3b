# SPDX-License-Identifier: MIT
"""What Python tests share: waiting for a condition, and ports to listen on."""

import contextlib
import random
import socket
import time
from typing import Callable


def wait_until(condition: Callable[[], object], what: str, seconds: float = 60) -> None:
    """Returns once the condition holds; fails after SECONDS with what it waited for."""
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            raise TimeoutError(f"timed out waiting for {what}")
        time.sleep(0.02)


def free_port() -> int:
    """A free port of the loopback, below those that the system gives to outgoing connections."""
    while True:
        port = random.randrange(20_000, 30_000)
        with socket.socket() as probe, contextlib.suppress(OSError):
            probe.bind(("127.0.0.1", port))
            return port
