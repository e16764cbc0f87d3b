#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Each writing command, killed or out of disk space at each of its writes."""

import collections
import datetime
import json
import os
import shutil
import subprocess
import sys
import unittest
from pathlib import Path
from typing import Dict, List, NamedTuple

from publishertest import PublisherTest

# System calls that change the disk or prepare that.
WRITES = "write,mkdir,rename,symlink,unlink,unlinkat,rmdir,chmod,fchmod,syncfs"
# The same for rsync, whose processes also write to each other.
WRITES_OF_RSYNC = "mkdir,mkdirat,rename,renameat,symlink,symlinkat,unlink,rmdir,chmod,fchmod"
# Calls that fail on a full disk, where files can still be moved and removed.
GROWTH = "write,mkdir,symlink"
GROWTH_OF_RSYNC = "mkdir,mkdirat,rename,renameat,symlink,symlinkat"
# Each of these makes a change visible. Of the others every fifth is enough.
DECISIVE = ("rename", "renameat", "syncfs")


class Command(NamedTuple):
    """A command that changes a tree."""

    arguments: List[str]
    changed: str = "site"  # the tree that it changes
    writes: str = WRITES
    growth: str = GROWTH
    only: str = ""  # a path: calls about other files do not count


def tree_of(site: Path) -> Dict[str, object]:
    """The content of the tree, without the names of generations."""
    found: Dict[str, object] = {}
    for path in site.rglob("*"):
        name = str(path.relative_to(site))
        if name.startswith("check/generations") or path.name.startswith("."):
            continue
        if ".publish/" in name:
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
            for key in ("published", "planBegan", "stepBegan"):
                del release[key]
        content["activity"] = [line.split(" ", 1)[1] for line in content["activity"]]
        found["check/now/releases.json"] = content
    return found


class Interrupted(PublisherTest):
    """Trees with three releases, and a command that changes one."""

    def setUp(self) -> None:
        super().setUp()
        (self.room / "setup.exe").write_bytes(b"MZ setup")
        self.original = self.room / "original"
        self.trees = self.room / "trees"
        self.trees.mkdir()
        self.site = self.trees / "site"
        self.trace = self.room / "trace"

    def make_trees(self) -> None:
        """Makes the trees with which each attempt starts."""
        site = str(self.site)
        self.succeed(*self.zip("2.0.0", "--share", "100"))
        shutil.copytree(self.site, self.trees / "beta", symlinks=True)
        self.succeed(*self.zip("2.1.0"))
        self.succeed("rollout", site, "--version", "2.1.0", "--plan", "0.1% 1h, 0.2% 1h, 100%")
        self.succeed("push", site, str(self.trees / "node"))
        self.let_two_hours_pass()
        self.succeed(*self.zip("2.2.0", "--share", "0.1"))
        self.succeed("stop", site, "--version", "2.2.0")
        shutil.copytree(self.site, self.trees / "paused", symlinks=True)
        self.succeed("stop", str(self.trees / "paused"))
        self.write_log()
        self.trees.rename(self.original)

    def let_two_hours_pass(self) -> None:
        """Makes the plan begin earlier."""
        file = self.site / "check" / "now" / "releases.json"
        began = datetime.datetime.now(datetime.timezone.utc) - datetime.timedelta(hours=2)
        content = json.loads(file.read_text())
        for key in ("planBegan", "stepBegan"):
            content["releases"][-1][key] = began.strftime("%Y-%m-%dT%H:%M:%SZ")
        file.write_text(json.dumps(content))

    def write_log(self) -> None:
        """Logs a client that was offered the planned release."""
        now = datetime.datetime.now(datetime.timezone.utc)
        (self.room / "updates.log").write_text(json.dumps({
            "time": now.isoformat("T", "seconds"), "address": "192.0.2.1", "method": "POST",
            "path": "/check", "status": "200", "bytes": 700, "seconds": 0.001, "completed": "OK",
            "version": "2.0.0", "answer": "2.1.0", "package": "Client-2.1.0.zip", "tls": "TLSv1.3",
        }, separators=(",", ":")) + "\n")

    def start_again(self) -> None:
        """Restores the trees of make_trees()."""
        shutil.rmtree(self.trees, ignore_errors=True)
        shutil.copytree(self.original, self.trees, symlinks=True)

    def traced(self, command: Command, calls: str, *more: str) -> subprocess.CompletedProcess:
        """Runs a command under strace, which counts calls per kind and process."""
        only = ["-P", command.only] if command.only else []
        strace = ["strace", "-f", "-qq", "-o", str(self.trace), *only, "-e", f"trace={calls}", *more]
        return self.run_tool(*command.arguments, before=strace)

    def calls_of(self, command: Command, calls: str) -> Dict[str, int]:
        """Runs the command; returns how often a process makes each of these calls."""
        done = self.traced(command, calls)
        self.assertEqual(done.returncode, 0, done.stderr)
        lines = [line.split(None, 1) for line in self.trace.read_text().splitlines()]
        counts = collections.Counter(
            (process, call.split("(")[0]) for process, call in lines if call[0].isalpha()
        )
        return {call: max(count for (_, name), count in counts.items() if name == call)
                for _, call in counts}

    def check(self, command: Command, calls: str, injection: str) -> None:
        """Interrupts the command at each of its writes, and repeats it."""
        name = " ".join(command.arguments[:1] + command.arguments[2:4])
        changed = self.trees / command.changed
        self.start_again()
        before = tree_of(changed)
        counts = self.calls_of(command, calls)
        after = tree_of(changed)
        self.assertNotEqual(before, after)

        attempts = 0
        for call, count in counts.items():
            for number in range(1, count + 1, 1 if call in DECISIVE else 5):
                self.start_again()
                done = self.traced(command, call, "-e",
                                   f"inject={call}:{injection.format(number=number)}")
                attempts += done.returncode != 0
                with self.subTest(f"{name}, {call} {number}"):
                    self.check_interrupted(command, before, after)
        print(f"{name}: {attempts} times", file=sys.stderr)
        self.assertGreater(attempts, 0, name)

    def check_interrupted(self, command: Command, before: dict, after: dict) -> None:
        """Verifies that the tree is the old or the new one and can be changed."""
        changed = self.trees / command.changed
        self.assertIn(self.without_orphans(tree_of(changed), before, after), (before, after))
        self.succeed(*command.arguments)
        # A repeat with nothing left to do leaves the cleaning up to the next change.
        if command.arguments[0] not in ("advance", "resume"):
            self.assertFalse((changed / ".publish").exists())
        self.succeed("verify", str(changed))

    @staticmethod
    def without_orphans(found: dict, before: dict, after: dict) -> dict:
        """Without files that only the new tree refers to."""
        if found.get("check/now/releases.json") == after.get("check/now/releases.json"):
            return found
        return {
            name: content for name, content in found.items()
            if name in before or name not in after or after[name] != content
        }

    def commands(self) -> List[Command]:
        """All commands that change a tree."""
        site = str(self.site)
        node, paused, beta = (str(self.trees / name) for name in ("node", "paused", "beta"))
        network = ["--network", "192.0.2.0/24"]
        return [
            Command(self.zip("3.0.0", "--share", "0.1")),
            Command(self.zip("2.1.0", update="forced")),
            Command(["installer", "--file", str(self.room / "setup.exe"), "--name", "Setup",
                     "--version", "3.0.0", "--update", "forced", *self.notes_and_tree()]),
            Command(["promote", site, beta, "--version", "2.1.0"], changed="beta"),
            Command(["rollout", site, "--version", "2.1.0", "--share", "0.2", *network]),
            Command(["advance", site, "--log", str(self.room / "updates.log")]),
            Command(["stop", site, "--version", "2.1.0"]),
            # One empty file is made.
            Command(["stop", site], growth="openat", writes="openat", only=f"{site}/check/stop"),
            Command(["resume", site, "--version", "2.2.0"]),
            Command(["resume", paused], changed="paused"),
            Command(["rollback", site, "--version", "2.1.0", "--downgrade"]),
            Command(["push", site, node], changed="node", writes=WRITES_OF_RSYNC,
                    growth=GROWTH_OF_RSYNC),
        ]


class Killed(Interrupted):
    """SIGKILL at each write."""

    def test_killed_at_each_write(self) -> None:
        self.make_trees()
        for command in self.commands():
            self.check(command, command.writes, "signal=KILL:when={number}")

    def test_the_first_release_killed_at_each_write(self) -> None:
        self.original.mkdir()
        self.check(Command(self.zip("1.0.0", "--share", "100")), WRITES,
                   "signal=KILL:when={number}")


class OutOfSpace(Interrupted):
    """A full disk from each write on."""

    def test_disk_full_from_each_write_on(self) -> None:
        self.make_trees()
        for command in self.commands():
            # To lift the stop takes no space.
            if command.changed != "paused":
                self.check(command, command.growth, "error=ENOSPC:when={number}+")


class NotInterrupted(Interrupted):
    """Commands that are not interrupted."""

    def test_a_dry_run_writes_nothing(self) -> None:
        self.make_trees()
        for command in self.commands():
            with self.subTest(command.arguments[0]):
                self.start_again()
                before = self.times()
                self.succeed(*command.arguments, "--dry-run")
                self.assertEqual(self.times(), before)
                self.succeed(*command.arguments)
                self.assertNotEqual(self.times(), before)

    def times(self) -> Dict[str, int]:
        """The time of the last change of each file and folder, in nanoseconds."""
        paths = [self.trees, *self.trees.rglob("*")]
        return {str(path): path.lstat().st_mtime_ns for path in paths}

    def test_a_restored_tree_gives_its_next_state_another_name(self) -> None:
        self.make_trees()
        names = []
        for share in ("10", "20"):
            self.start_again()
            self.succeed("rollout", str(self.site), "--version", "2.1.0", "--share", share)
            names.append(os.readlink(self.site / "check" / "now"))
        self.assertNotEqual(*names)


if __name__ == "__main__":
    PublisherTest.tool = sys.argv.pop(1)
    unittest.main()
