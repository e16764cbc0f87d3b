# SPDX-License-Identifier: MIT
"""What tests of the publishing tool on the command line share."""

import subprocess
import tempfile
import unittest
from pathlib import Path
from typing import List

TIME_LIMIT = 60  # seconds


class PublisherTest(unittest.TestCase):
    """Each test has a folder with a client, notes and a place for the release tree."""

    tool = ""

    def setUp(self) -> None:
        self.room = Path(self.enterContext(tempfile.TemporaryDirectory()))
        (self.room / "client").mkdir()
        (self.room / "client" / "a.txt").write_text("a" * 100)
        (self.room / "zh.txt").write_text("新\n", encoding="utf-8")
        (self.room / "en.txt").write_text("new\n", encoding="utf-8")
        self.site = self.room / "site"

    def notes_and_tree(self, site: Path = None) -> List[str]:
        """Options of a command that publishes."""
        return ["--notes-zh", str(self.room / "zh.txt"), "--notes-en", str(self.room / "en.txt"),
                "--out", str(site or self.site)]

    def zip(self, version: str, *more: str, update: str = "optional", site: Path = None) -> List[str]:
        """The arguments that publish the client."""
        return ["zip", "--client", str(self.room / "client"), "--name", "Client",
                "--version", version, "--update", update, *self.notes_and_tree(site), *more]

    def run_tool(self, *arguments: object, before=(), environment=None) -> subprocess.CompletedProcess:
        """Runs the tool, after the command BEFORE, and returns its result."""
        return subprocess.run(
            [*before, self.tool, *map(str, arguments)], capture_output=True, text=True, check=False,
            timeout=TIME_LIMIT, env=environment,
        )

    def succeed(self, *arguments: object) -> str:
        """Runs the tool, requires success and returns its output."""
        done = self.run_tool(*arguments)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout
