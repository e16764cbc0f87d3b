#!/usr/bin/python3
"""Each command that writes, killed or out of disk space at each of its writes in turn."""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from typing import Dict, List

TOOL = ""
TIME_LIMIT = 60  # seconds, for what takes a tenth of one

# The calls that change something on the disk, or begin to.
WRITES = "write,mkdir,rename,symlink,unlink,unlinkat,rmdir,chmod,fchmod,syncfs"
FROM_THE_FIRST_WRITE = "trace=" + WRITES


def tree_of(site: Path) -> Dict[str, object]:
    """What the tree is for those who use it: everything but the names of generations."""
    found: Dict[str, object] = {}
    for path in site.rglob("*"):
        name = str(path.relative_to(site))
        if name.startswith((".publish", "check/generations")):
            continue
        if path.is_symlink() and not path.exists():
            continue  # a link of a tree that has no release yet
        found[name] = path.read_bytes() if path.is_file() else None
    now = site / "check" / "now"
    for path in now.rglob("*") if now.exists() else ():
        name = f"now/{path.relative_to(now)}"
        found[name] = os.readlink(path) if path.is_symlink() else path.is_file() or None
    releases = now / "releases.json"
    if releases.exists():
        # The times differ from run to run.
        content = json.loads(releases.read_text())
        for release in content["releases"]:
            del release["published"]
        content["activity"] = [line.split(" ", 1)[1] for line in content["activity"]]
        found["check/now/releases.json"] = content
    return found


class Interrupted(unittest.TestCase):
    """A tree with two releases, and a command that changes it."""

    def setUp(self) -> None:
        self.room = Path(self.enterContext(tempfile.TemporaryDirectory()))
        (self.room / "client").mkdir()
        (self.room / "client" / "a.txt").write_text("a" * 100)
        (self.room / "zh.txt").write_text("新\n", encoding="utf-8")
        (self.room / "en.txt").write_text("new\n", encoding="utf-8")
        self.original = self.room / "original"
        self.site = self.room / "site"

    def zip(self, version: str, *more: str) -> List[str]:
        """What publishes a release."""
        # fmt: off
        return [
            "zip", "--client", str(self.room / "client"), "--name", "Client", "--version", version,
            "--update", "optional", "--notes-zh", str(self.room / "zh.txt"),
            "--notes-en", str(self.room / "en.txt"), "--out", str(self.site), *more,
        ]
        # fmt: on

    def run_tool(self, arguments: List[str], *before: str) -> subprocess.CompletedProcess:
        """Runs it to its end."""
        return subprocess.run(
            [*before, TOOL, *arguments], capture_output=True, text=True, check=False,
            timeout=TIME_LIMIT,
        )

    def make_tree(self, *commands: List[str]) -> None:
        """The tree that each attempt starts with."""
        for command in commands:
            done = self.run_tool(command)
            self.assertEqual(done.returncode, 0, done.stderr)
        if self.site.exists():
            self.site.rename(self.original)
        else:
            self.original.mkdir()

    def start_again(self) -> None:
        """The tree as it was made."""
        shutil.rmtree(self.site, ignore_errors=True)
        shutil.copytree(self.original, self.site, symlinks=True)

    def check(self, command: List[str], injection: str, ends: range) -> int:
        """Ends the command at its first write, its second and so on, until it gets through."""
        self.start_again()
        before = tree_of(self.site)
        self.assertEqual(self.run_tool(command).returncode, 0)
        after = tree_of(self.site)
        self.assertNotEqual(before, after)

        attempts = 0
        for number in ends:
            self.start_again()
            done = self.run_tool(
                command, "strace", "-f", "-qq", "-o", "/dev/null",
                "-e", FROM_THE_FIRST_WRITE, "-e", injection.format(number=number),
            )
            if done.returncode == 0:
                break
            attempts += 1
            with self.subTest(f"{command[0]}, write {number}"):
                self.assertIn(self.without_orphans(tree_of(self.site), before, after),
                              (before, after))
                again = self.run_tool(command)
                self.assertEqual(again.returncode, 0, again.stderr)
                self.assertFalse((self.site / ".publish").exists())
                verified = self.run_tool(["verify", str(self.site)])
                self.assertEqual(verified.returncode, 0, verified.stderr)
        return attempts

    @staticmethod
    def without_orphans(found: dict, before: dict, after: dict) -> dict:
        """Without what the new tree has, too, and nothing leads to yet."""
        if found.get("check/now/releases.json") == after.get("check/now/releases.json"):
            return found
        return {
            name: content for name, content in found.items()
            if name in before or name not in after or after[name] != content
        }

    def commands(self) -> List[List[str]]:
        """Each command that changes a tree with two releases, the second at 10 %."""
        site = str(self.site)
        return [
            self.zip("3.0.0"),
            self.zip("3.0.0", "--share", "1"),
            ["rollout", site, "--version", "2.1.0", "--share", "1.2", "--network", "192.0.2.0/24"],
            ["stop", site, "--version", "2.1.0"],
            ["stop", site],
            ["rollback", site, "--version", "2.1.0", "--downgrade"],
        ]

    def test_killed_at_each_write(self) -> None:
        self.make_tree(self.zip("2.0.0", "--share", "100"), self.zip("2.1.0", "--share", "0.3"))
        injection = f"inject={WRITES}:signal=KILL:when={{number}}"
        for command in self.commands():
            attempts = self.check(command, injection, range(1, 1000))
            print(f"{command[0]}: killed {attempts} times", file=sys.stderr)
            self.assertGreater(attempts, 0)

    def test_the_first_release_killed_at_each_write(self) -> None:
        self.make_tree()
        injection = f"inject={WRITES}:signal=KILL:when={{number}}"
        self.assertGreater(self.check(self.zip("1.0.0", "--share", "100"), injection,
                                      range(1, 1000)), 20)

    def test_disk_full_from_each_write_on(self) -> None:
        self.make_tree(self.zip("2.0.0", "--share", "100"), self.zip("2.1.0", "--share", "0.3"))
        # The disk is full for files and folders that are made or grow; what is there can be moved.
        injection = "inject=write,mkdir,symlink:error=ENOSPC:when={number}+"
        for command in self.commands():
            attempts = self.check(command, injection, range(1, 1000))
            print(f"{command[0]}: out of space {attempts} times", file=sys.stderr)


if __name__ == "__main__":
    TOOL = sys.argv.pop(1)
    unittest.main()
