#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The sample client, killed at each system call on the file it saves to."""

import contextlib
import json
import os
import re
import signal
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from typing import List, NamedTuple

from waiting import wait_until

CLIENT = ""
TIME_LIMIT = 60  # seconds
CALLS = "openat,write,fdatasync,linkat,rename,close"
CALL = re.compile(r"(\w+)\(")
# The saved file in a trace. Until it is complete it has a number instead of a name.
SAVING = re.compile(r"norvaneAssistant/(session\.json|#)|O_TMPFILE")

OLD = {"meeting": "host/old", "draft": "What the user wrote."}
NEW = {**OLD, "meeting": "host/new"}


class Moment(NamedTuple):
    """The name of a call, and its number among those of this name."""

    call: str
    number: int


class KilledClient(unittest.TestCase):
    """A user whose client has saved a session."""

    def setUp(self) -> None:
        self.home = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.data = self.home / "AppData/Roaming/norvaneAssistant"
        self.data.mkdir(parents=True)
        self.session = self.data / "session.json"
        self.session.write_text(json.dumps(OLD))
        self.trace = self.home / "trace"
        self.environment = {**os.environ, "HOME": str(self.home), "TMPDIR": str(self.home)}

    def start(self, arguments: List[str], *before: str) -> subprocess.Popen:
        """Starts the client in its own process group."""
        process = subprocess.Popen([*before, CLIENT, *arguments], env=self.environment, start_new_session=True)
        self.addCleanup(self.end, process)
        return process

    def end(self, process: subprocess.Popen) -> None:
        """Kills what start() started, including a client under strace."""
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGKILL)
        process.wait()

    def saved(self) -> object:
        """The session that the next start resumes."""
        return json.loads(self.session.read_text())

    def start_traced(self, *options: str) -> subprocess.Popen:
        """Opens the new meeting under strace."""
        return self.start(["--url=host/new"], "strace", "-qq", "-y", "-o", str(self.trace),
                          "-e", f"trace={CALLS}", *options)

    def has_saved(self) -> bool:
        """Whether the traced client has replaced the file and continued."""
        return self.saved() == NEW and "close(" in self.trace.read_text().split("rename(")[-1]

    def moments(self) -> List[Moment]:
        """The calls of a normal run on the file."""
        process = self.start_traced()
        wait_until(self.has_saved, "a saved session")
        self.end(process)
        found, counts = [], {}
        for line in self.trace.read_text().splitlines():
            match = CALL.match(line)
            if match:
                counts[match[1]] = counts.get(match[1], 0) + 1
                if SAVING.search(line):
                    found.append(Moment(match[1], counts[match[1]]))
        return found

    def lock_holder(self) -> str:
        """The number of the process that holds the lock."""
        lock = self.data / "running.lock"
        return lock.read_text().split("\n")[0] if lock.exists() else ""

    def test_it_goes_on_with_the_old_session_or_the_new_one(self) -> None:
        moments = self.moments()
        self.assertLessEqual({"openat", "write", "fdatasync", "rename"}, {moment.call for moment in moments})
        unfinished = 0
        for moment in moments:
            with self.subTest(moment):
                self.session.write_text(json.dumps(OLD))
                killed = self.start_traced("-e", f"inject={moment.call}:signal=KILL:when={moment.number}")
                # The number of calls varies, so the client may also survive.
                wait_until(lambda: killed.poll() is not None or self.has_saved(), "the end or a saved session")
                self.end(killed)
                self.assertIn(self.saved(), (OLD, NEW))
                unfinished += len(list(self.data.glob("session.json.*")))

                first = self.start([])
                wait_until(lambda: self.lock_holder() == str(first.pid), "the lock of the first copy")
                second = self.start(["--url=host/next"])
                self.assertEqual(second.wait(TIME_LIMIT), 0)
                wait_until(lambda: self.saved() == {**OLD, "meeting": "host/next"}, "the meeting of the second copy")
                self.assertIsNone(first.poll())
                self.end(first)
                self.assertEqual(list(self.data.glob("session.json.*")), [])
        self.assertGreater(unfinished, 0)


if __name__ == "__main__":
    CLIENT = sys.argv.pop(1)
    unittest.main()
