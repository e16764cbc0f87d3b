#!/usr/bin/python3
"""The commands that the documents print, run as they stand and in their order."""

import os
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

TOOL = Path()
DOCUMENTS = Path(__file__).resolve().parents[2] / "docs"
TIME_LIMIT = 60  # seconds, for what takes a tenth of one

# A fence with "sh root" is for a server, as root.
BLOCK = re.compile(r"^```sh( root)?\n(.*?)^```$", re.DOTALL | re.MULTILINE)


def blocks(document: str) -> list:
    """The blocks that anybody can run."""
    text = (DOCUMENTS / document).read_text(encoding="utf-8")
    return [commands for root, commands in BLOCK.findall(text) if not root]


class CommandBlocks(unittest.TestCase):
    """Each test runs in an empty folder, as a reader would begin."""

    def setUp(self) -> None:
        self.room = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.environment = {**os.environ, "PATH": f"{TOOL.parent}:{os.environ['PATH']}"}

    def run_all(self, commands: list) -> None:
        """Runs each block in a shell of its own; every command in it has to succeed."""
        for number, block in enumerate(commands, 1):
            done = subprocess.run(
                ["bash", "-euo", "pipefail", "-c", block], cwd=self.room, env=self.environment,
                capture_output=True, text=True, check=False, timeout=TIME_LIMIT,
            )
            self.assertEqual(done.returncode, 0, f"block {number}:\n{block}\n{done.stderr}")

    def test_packages(self) -> None:
        commands = blocks("packages.md")
        self.assertGreater(len(commands), 3)
        self.run_all(commands)

    def test_service_from_the_first_release_to_a_rollback(self) -> None:
        commands = blocks("service.md")
        self.assertGreater(len(commands), 10)
        # packages.md makes the client and the notes.
        self.run_all(blocks("packages.md")[:1] + commands)


if __name__ == "__main__":
    TOOL = Path(sys.argv.pop(1)).resolve()
    unittest.main()
