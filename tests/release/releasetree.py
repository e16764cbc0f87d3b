"""A tree of releases, made and changed by publish."""

import random
import subprocess
from pathlib import Path

NAME = "NorvaneClient"
PATIENCE_SECONDS = 60


def package_id(version: str) -> str:
    """The package of a release, as addresses name it."""
    return f"{NAME}-{version}.zip"


class ReleaseTree:
    """The tree ROOM/NAME. What is published lies in ROOM, the same for all trees there."""

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
        """Another command that changes whom the releases are offered to."""
        self.run(command, self.folder, *options)

    def roll_out(self, version: str, *options: str) -> None:
        """The command "rollout"."""
        self.change("rollout", "--version", version, *options)

    def run(self, *arguments: object) -> None:
        """One command, which has to succeed."""
        done = subprocess.run(
            [self.tool, *arguments], capture_output=True, text=True, check=False,
            timeout=PATIENCE_SECONDS,
        )
        if done.returncode != 0:
            raise RuntimeError(done.stderr)

    def package(self, version: str) -> Path:
        """The file of a package."""
        return self.folder / "packages" / package_id(version)

    def answer(self, version: str) -> Path:
        """The answer to a check that announces a release."""
        return self.check / "answers" / version / f"{package_id(version)}.json"
