# SPDX-License-Identifier: MIT
"""A release tree that the publishing tool makes and changes."""

import random
import subprocess
from pathlib import Path

NAME = "NorvaneClient"
PATIENCE_SECONDS = 60


def package_id(version: str) -> str:
    """The package of a release in addresses."""
    return f"{NAME}-{version}.zip"


class ReleaseTree:
    """The tree ROOM/NAME. All trees in ROOM publish the same client folder there."""

    def __init__(self, publish: str, room: Path, name: str = "tree"):
        self.tool = publish
        self.folder = room / name
        self.check = self.folder / "check"
        self.client = room / "client"
        self.notes = room / "notes.txt"
        if not self.client.exists():
            self.client.mkdir()
            # Does not get smaller in a package.
            (self.client / "data.bin").write_bytes(random.Random(1).randbytes(300_000))
            self.notes.write_text("中文说明", encoding="utf-8")

    def publish(self, version: str, *options: str) -> None:
        """Publishes a release; --share rolls it out at once."""
        self.run(
            "zip", "--client", self.client, "--name", NAME, "--version", version,
            "--update", "optional", "--notes-zh", self.notes, "--notes-en", self.notes,
            "--url-prefix", "https://updates.example.com", "--out", self.folder, *options,
        )

    def change(self, command: str, *options: str) -> None:
        """A command that changes who is offered the releases."""
        self.run(command, self.folder, *options)

    def roll_out(self, version: str, *options: str) -> None:
        """The command "rollout"."""
        self.change("rollout", "--version", version, *options)

    def run(self, *arguments: object) -> None:
        """A command, which must succeed."""
        done = subprocess.run(
            [self.tool, *arguments], capture_output=True, text=True, check=False,
            timeout=PATIENCE_SECONDS,
        )
        if done.returncode != 0:
            raise RuntimeError(done.stderr)

    def package(self, version: str) -> Path:
        """The path of a package."""
        return self.folder / "packages" / package_id(version)

    def answer(self, version: str) -> Path:
        """The path of the answer that offers a release."""
        return self.check / "answers" / version / f"{package_id(version)}.json"
