#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The publishing tool on the command line: its output, exit codes and interruptions."""

import fcntl
import hashlib
import json
import os
import pty
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
import zipfile
from pathlib import Path
from typing import Callable, Dict, List, Optional

TOOL = ""
TIME_LIMIT = 120  # seconds, for what takes less than one

Snapshot = Dict[str, Optional[bytes]]


def snapshot(folder: Path) -> Snapshot:
    """All files below the folder with their contents, and folders with None."""
    return {
        str(path.relative_to(folder)): None if path.is_dir() else path.read_bytes()
        for path in folder.rglob("*")
    }


def served(folder: Path) -> Snapshot:
    """The files of a tree that a web server would serve."""
    return {
        path: content for path, content in snapshot(folder).items() if not path.startswith(".")
    }


class Publish(unittest.TestCase):
    """Each test has a client's folder, notes and a place for the release tree of its own."""

    def setUp(self) -> None:
        self.room = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.client = self.room / "client"
        self.site = self.room / "site"
        (self.client / "plug ins" / "deep").mkdir(parents=True)
        (self.client / "empty").mkdir()
        (self.client / "a.txt").write_text("a" * 1000)
        (self.client / "plug ins" / "deep" / "b.txt").write_text("b")
        (self.room / "zh.txt").write_text("新\n", encoding="utf-8")
        (self.room / "en.txt").write_text("new\n", encoding="utf-8")

    def command(self, version: str = "2.1.3", *more: str) -> List[str]:
        """The arguments that publish the client."""
        # fmt: off
        return [
            TOOL, "zip", "--client", str(self.client), "--name", "Client", "--version", version,
            "--update", "optional", "--notes-zh", str(self.room / "zh.txt"),
            "--notes-en", str(self.room / "en.txt"), "--out", str(self.site), *more,
        ]
        # fmt: on

    def run_tool(
        self, command: List[str], before: Optional[Callable[[], None]] = None
    ) -> subprocess.CompletedProcess:
        """Runs the tool and returns its result."""
        # A process of its own whose limits can be lowered.
        return subprocess.run(  # pylint: disable=subprocess-popen-preexec-fn
            command,
            capture_output=True,
            text=True,
            check=False,
            timeout=TIME_LIMIT,
            preexec_fn=before,
        )

    def publish(self, version: str = "2.1.3", *more: str) -> subprocess.CompletedProcess:
        """Publishes the client."""
        return self.run_tool(self.command(version, *more))

    def offer(self, version: str) -> Path:
        """The answer that announces a release."""
        return self.site / "check" / "answers" / version / f"Client-{version}.zip.json"

    def make_client_large(self) -> None:
        """Gives the client data that takes a while to compress."""
        noise = os.urandom(1 << 20)
        text = b"".join(b"%02x" % byte for byte in noise)
        for number in range(15):
            (self.client / f"{number}.txt").write_bytes(text)

    def start_and_wait_for_half_a_package(self) -> subprocess.Popen:
        """Starts publishing a large client and returns before the end."""
        self.make_client_large()
        # Whoever waits for its end sees it, so the test does what it says.
        tool = subprocess.Popen(  # pylint: disable=consider-using-with
            self.command("2.2.0"), stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True
        )
        staged = self.site / ".publish" / "package"
        deadline = time.monotonic() + TIME_LIMIT
        while not (staged.exists() and staged.stat().st_size > 1 << 20):
            self.assertIsNone(tool.poll(), "it was over before it could be stopped")
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.001)
        return tool

    def succeed(self, *arguments: object) -> str:
        """The output of a command on the tree."""
        command, *more = map(str, arguments)
        done = self.run_tool([TOOL, command, str(self.site), *more])
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout

    def refused(self, *arguments: object) -> str:
        """The refusal of a command on the tree."""
        command, *more = map(str, arguments)
        done = self.run_tool([TOOL, command, str(self.site), *more])
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        return done.stderr

    def listed(self) -> dict:
        """The newest release in the output of "list"."""
        return json.loads(self.succeed("list", "--json"))["releases"][0]

    def test_publishing_again_does_not_change_the_share(self) -> None:
        self.publish("2.1.3", "--share", "100")
        done = self.publish("2.1.3", "--share", "10")
        self.assertEqual(done.returncode, 1)
        self.assertIn('2.1.3 was published before and has the share 100 %; ', done.stderr)
        self.assertEqual(self.publish("2.1.3", "--share", "100").returncode, 0)
        self.assertEqual(self.publish("2.1.3").returncode, 0)
        self.assertEqual(self.listed()["share"], 100)
        self.succeed("rollback", "--version", "2.1.3")
        done = self.publish("2.1.3", "--share", "100")
        self.assertEqual(done.returncode, 1)
        self.assertIn("2.1.3 was rolled back; publish a new version", done.stderr)

    def test_a_release_may_be_for_some_networks_only(self) -> None:
        self.publish()
        rollout = ("rollout", "--version", "2.1.3")
        self.assertIn("neither a share nor a network", self.refused(*rollout))
        self.succeed(*rollout, "--network", "192.0.2.0/24")
        release = self.listed()
        self.assertEqual((release["share"], release["state"], release["offered"]),
                         (0, "rolled out", True))
        self.assertIn("neither a share nor a network", self.refused(*rollout, "--network", "none"))

    def test_nothing_is_offered_while_everything_is_stopped(self) -> None:
        self.publish("2.1.3", "--share", "100")
        self.succeed("stop", "--version", "2.1.3")
        self.assertEqual(self.succeed("resume"),
                         f"{self.site}: the offers were not stopped\n"
                         "2.1.3 stays stopped; resume it with --version 2.1.3\n")
        self.succeed("resume", "--version", "2.1.3")
        self.assertTrue(self.listed()["offered"])
        self.succeed("stop")
        self.assertFalse(self.listed()["offered"])
        self.assertEqual(self.succeed("resume"), f"{self.site}: the stop is lifted\n")
        self.assertTrue(self.listed()["offered"])

    def test_a_result_that_cannot_be_written_is_a_failure(self) -> None:
        self.publish()
        for more in ([], ["--json"]):
            with open("/dev/full", "w", encoding="utf-8") as full:
                done = subprocess.run(
                    [TOOL, "list", str(self.site), *more], stdout=full, stderr=subprocess.PIPE,
                    text=True, check=False, timeout=TIME_LIMIT,
                )
            self.assertEqual(done.returncode, 1)
            self.assertIn("the result cannot be written", done.stderr)

    def test_a_list_that_would_lead_out_of_the_tree_is_refused(self) -> None:
        self.publish("2.1.3", "--share", "100")
        file = self.site / "check" / "now" / "releases.json"
        sound = file.read_text()
        for key, value in (("from", ["../../x.*"]), ("networks", ["../x"]), ("id", ".."),
                           ("id", "a/b.zip"), ("revision", "..")):
            content = json.loads(sound)
            content["releases"][0][key] = value
            file.write_text(json.dumps(content))
            with self.subTest(key=key, value=value):
                refused = self.refused("stop", "--version", "2.1.3")
                self.assertIn(f'releases.json: "{key}" of a release cannot be read', refused)

    def test_a_tree_is_not_pushed_into_itself(self) -> None:
        self.publish()
        for node in (self.site, self.site / "sub"):
            self.assertIn(f'"{node}" is in the tree; ', self.refused("push", node))
        self.assertFalse((self.site / "sub").exists())
        self.succeed("push", f"{self.site}-2")

    def test_a_dry_run_tells_the_commands_of_a_push(self) -> None:
        self.publish()
        told = json.loads(self.succeed("push", f"{self.site}-2", "--dry-run", "--json"))
        self.assertEqual({command[0] for command in told["commands"]}, {"rsync"})
        self.assertEqual({command[-1].split("/")[-2] for command in told["commands"]},
                         {"check", "packages", "site-2"})

    def test_success_is_told(self) -> None:
        done = self.publish()
        self.assertEqual(done.returncode, 0, done.stderr)
        package = self.site / "packages" / "Client-2.1.3.zip"
        self.assertIn("Published version 2.1.3, optional.", done.stdout)
        self.assertIn(str(package), done.stdout)
        self.assertIn(hashlib.md5(package.read_bytes()).hexdigest(), done.stdout)
        verified = self.run_tool([TOOL, "verify", str(self.site)])
        self.assertEqual(verified.returncode, 0, verified.stderr)
        self.assertIn("follows every rule", verified.stdout)

    def test_other_programs_read_the_package(self) -> None:
        # Stored and packed files, an empty one, and more than one piece of the packer.
        (self.client / "noise.bin").write_bytes(os.urandom(300_000))
        (self.client / "text.txt").write_text("one line of many\n" * 200_000)
        (self.client / "nothing").touch()
        self.assertEqual(self.publish().returncode, 0)
        package = str(self.site / "packages" / "Client-2.1.3.zip")
        for unpack in (
            ["python3", "-m", "zipfile", "-e", package, "."],
            ["unzip", "-q", package],
            ["7z", "x", package],
            ["bsdtar", "-xf", package],
        ):
            with self.subTest(unpack[0]):
                folder = self.room / unpack[0]
                folder.mkdir()
                done = subprocess.run(unpack, cwd=folder, capture_output=True, check=False)
                self.assertEqual(done.returncode, 0, done.stderr)
                self.assertEqual(snapshot(folder / "Client-2.1.3"), snapshot(self.client))

    def test_answers_are_one_line_of_json(self) -> None:
        self.assertEqual(self.publish("2.1.3", "--url-prefix", "https://x.invalid").returncode, 0)
        offer = self.offer("2.1.3").read_text(encoding="utf-8")
        self.assertEqual(offer.count("\n"), 1)
        package = self.site / "packages" / "Client-2.1.3.zip"
        self.assertEqual(
            json.loads(offer),
            {
                "code": "000000",
                "desc": "success",
                "biz": {
                    "id": "Client-2.1.3.zip",
                    "update": "1",
                    "latestVersion": "2.1.3",
                    "latestVersionUrl": "https://x.invalid/packages/Client-2.1.3.zip",
                    "latestVersionInfo": "新&new",
                    "md5": hashlib.md5(package.read_bytes()).hexdigest(),
                    "sha1": hashlib.sha1(package.read_bytes()).hexdigest(),
                    "packageSize": package.stat().st_size,
                    "updateType": 1,
                },
            },
        )
        none = json.loads((self.site / "check" / "none.json").read_text(encoding="utf-8"))
        self.assertEqual((none["code"], none["biz"]["update"]), ("000000", "0"))

    def test_refusal_is_one_line_a_reason(self) -> None:
        (self.client / "中文.txt").write_text("x")
        (self.client / "link").symlink_to("a.txt")
        (self.room / "en.txt").write_text("this & that")
        refused = self.publish()
        self.assertEqual(refused.returncode, 1)
        self.assertEqual(refused.stdout, "")
        lines = refused.stderr.splitlines()
        self.assertEqual(len(lines), 3, refused.stderr)
        for line, advice in zip(lines, ["replace it with what it points to", "rename it", 'write "and"']):
            self.assertTrue(line.startswith("publish: "), line)
            self.assertIn(advice, line)
        self.assertFalse(self.site.exists())

    def test_a_much_shorter_version_has_to_be_allowed(self) -> None:
        self.assertEqual(self.publish("2.10.10").returncode, 0)
        before = snapshot(self.site)
        refused = self.publish("3.0.0")
        self.assertEqual(refused.returncode, 1)
        self.assertEqual(len(refused.stderr.splitlines()), 1, refused.stderr)
        self.assertIn("3.0.0 is 2 characters shorter than 2.10.10", refused.stderr)
        self.assertIn("such as 3.0.0.0, or pass --allow-shorter-version", refused.stderr)
        self.assertEqual(snapshot(self.site), before)
        allowed = self.publish("3.0.0", "--allow-shorter-version")
        self.assertEqual(allowed.returncode, 0, allowed.stderr)

    def test_many_reasons_are_cut_for_people_and_whole_for_scripts(self) -> None:
        for number in range(30):
            (self.client / f"é{number}").touch()
        refused = self.publish("2.1.3", "--json")
        self.assertEqual(refused.returncode, 1)
        self.assertEqual(len(refused.stderr.splitlines()), 21)
        self.assertIn("and 10 more", refused.stderr)
        result = json.loads(refused.stdout)
        self.assertFalse(result["ok"])
        self.assertEqual(
            {(reason["rule"], reason["path"]) for reason in result["refusals"]},
            {("name-ascii", f"é{number}") for number in range(30)},
        )

    def test_more_than_65535_entries_are_refused(self) -> None:
        many = self.client / "many"
        many.mkdir()
        for number in range(65535):
            os.close(os.open(many / str(number), os.O_CREAT | os.O_WRONLY))
        refused = self.publish()
        self.assertEqual(refused.returncode, 1)
        self.assertIn("65542 files and folders", refused.stderr)
        self.assertFalse(self.site.exists())

    def test_files_of_2_gib_are_refused(self) -> None:
        with (self.client / "large").open("wb") as large:
            large.truncate(2**31)  # takes no room
        refused = self.publish()
        self.assertEqual(refused.returncode, 1)
        self.assertIn("large: the file has 2147483648 bytes, but the updater accepts", refused.stderr)
        self.assertIn("at most 2147483647;", refused.stderr)
        self.assertNotIn("changed", refused.stderr)
        self.assertFalse(self.site.exists())

    def test_a_file_just_below_2_gib_is_published(self) -> None:
        with (self.client / "large").open("wb") as large:
            large.truncate(2**31 - 1)
        for more in (["--dry-run"], []):
            done = self.publish("2.1.3", *more)
            self.assertEqual(done.returncode, 0, done.stderr)
            self.assertNotIn("changed", done.stderr)

    def test_a_large_file_does_not_have_to_fit_into_memory(self) -> None:
        size = 300_000_000
        with (self.client / "large").open("wb") as large:
            large.truncate(size)  # takes no room
        # A new process counts what it was forked from, so this one must not be the parent.
        measure = ("import os, sys; tool = os.spawnv(os.P_NOWAIT, sys.argv[1], sys.argv[1:]);"
                   "print(os.wait4(tool, 0)[2].ru_maxrss)")
        done = self.run_tool([sys.executable, "-c", measure, *self.command()])
        with zipfile.ZipFile(self.site / "packages" / "Client-2.1.3.zip") as package:
            self.assertEqual(package.getinfo("Client-2.1.3/large").file_size, size)
        limit = 64 << 10  # KiB
        if "ASAN_OPTIONS" in os.environ:
            limit *= 3  # the address sanitizer's own memory
        self.assertLess(int(done.stdout.splitlines()[-1]), limit)

    def test_names_that_are_no_text_are_refused(self) -> None:
        raw = os.fsencode(self.client)
        os.mkdir(raw + b"/lost\xff")
        (self.client / "plug ins" / os.fsdecode(b"caf\xe9")).touch()
        refused = self.publish("2.1.3", "--json")
        self.assertEqual(refused.returncode, 1)
        self.assertIn("publish: lost\\xff: ", refused.stderr)
        self.assertEqual(
            [(reason["rule"], reason["path"]) for reason in json.loads(refused.stdout)["refusals"]],
            [("name-encoding", "lost\\xff"), ("name-encoding", "plug ins/caf\\xe9")],
        )
        self.assertFalse(self.site.exists())

    def test_arguments_that_are_no_text_are_refused(self) -> None:
        self.site = self.room / os.fsdecode(b"site\xe9")
        for command in (self.command("2.1.3", "--json"), [TOOL, "verify", str(self.site)]):
            before = sorted(os.listdir(self.room))
            refused = self.run_tool(command)
            self.assertEqual(refused.returncode, 2)
            self.assertIn('site\\xe9" is not valid UTF-8; ', refused.stderr)
            self.assertEqual(sorted(os.listdir(self.room)), before)

    def test_the_stop_file_can_be_read_by_everybody(self) -> None:
        self.assertEqual(self.publish().returncode, 0)
        stop = [TOOL, "stop", str(self.site)]
        self.assertEqual(self.run_tool(stop, lambda: os.umask(0o077)).returncode, 0)
        mode = (self.site / "check" / "stop").stat().st_mode & 0o7777
        self.assertEqual(oct(mode), "0o644")

    def test_a_release_is_stopped_while_another_is_packed(self) -> None:
        self.assertEqual(self.publish("2.1.3", "--share", "100").returncode, 0)
        tool = self.start_and_wait_for_half_a_package()
        tool.send_signal(signal.SIGSTOP)  # so that it cannot get ready meanwhile
        stopped = self.run_tool([TOOL, "stop", str(self.site), "--version", "2.1.3"])
        tool.send_signal(signal.SIGCONT)
        self.assertEqual(stopped.returncode, 0, stopped.stderr)
        _, errors = tool.communicate(timeout=TIME_LIMIT)
        self.assertEqual(tool.returncode, 0, errors)
        listed = json.loads((self.site / "check" / "now" / "releases.json").read_bytes())
        self.assertEqual(
            [(release["version"], release["stopped"]) for release in listed["releases"]],
            [("2.1.3", True), ("2.2.0", False)],
        )

    def test_what_a_killed_one_left_is_removed_by_any_command(self) -> None:
        self.assertEqual(self.publish("2.1.3", "--share", "100").returncode, 0)
        tool = self.start_and_wait_for_half_a_package()
        tool.kill()
        tool.communicate(timeout=TIME_LIMIT)
        stopped = self.run_tool([TOOL, "stop", str(self.site), "--version", "2.1.3"])
        self.assertEqual(stopped.returncode, 0, stopped.stderr)
        self.assertFalse((self.site / ".publish").exists())

    def test_the_updaters_folder_has_to_be_allowed(self) -> None:
        (self.client / "AutoUpdate").mkdir()
        (self.client / "AutoUpdate" / "AutoUpdate.exe").write_bytes(b"MZ")
        refused = self.publish()
        self.assertEqual(refused.returncode, 1)
        self.assertIn("or pass --allow-updater", refused.stderr)
        self.assertFalse(self.site.exists())
        allowed = self.publish("2.1.3", "--allow-updater")
        self.assertEqual(allowed.returncode, 0, allowed.stderr)
        self.assertIn('publish: warning: "AutoUpdate" is the updater', allowed.stderr)
        verify = [TOOL, "verify", str(self.site)]
        self.assertEqual(self.run_tool(verify).returncode, 1)
        self.assertEqual(self.run_tool(verify + ["--allow-updater"]).returncode, 0)

    def test_the_tree_can_be_read_by_everybody(self) -> None:
        setup = self.room / "Setup-2.2.0.exe"
        setup.write_bytes(b"MZ installer")
        setup.chmod(0o600)
        self.site = self.room / "new" / "site"
        installer = self.command("2.2.0")
        installer[1:6] = ["installer", "--file", str(setup)]

        def keep_to_oneself() -> None:
            os.umask(0o077)

        for command in (self.command(), installer):
            done = self.run_tool(command, keep_to_oneself)
            self.assertEqual(done.returncode, 0, done.stderr)
        new = self.room / "new"
        for path in [new, *new.rglob("*")]:
            if path.is_symlink():
                continue
            with self.subTest(path.relative_to(new)):
                mode = path.stat().st_mode & 0o7777
                self.assertEqual(oct(mode), "0o755" if path.is_dir() else "0o644")

    def test_what_is_left_out_is_told(self) -> None:
        added = (".git/config", "plug ins/Thumbs.db", "plug ins/a.pdb", "b.pdb")
        for path in added:
            (self.client / path).parent.mkdir(exist_ok=True)
            (self.client / path).touch()
        done = self.publish("2.1.3", "--exclude", "*.pdb")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn(
            "\n  left out .git, b.pdb, plug ins/Thumbs.db, plug ins/a.pdb\n", done.stdout
        )
        for path in added:
            (self.client / path).unlink()
        (self.client / ".git").rmdir()
        with zipfile.ZipFile(self.site / "packages" / "Client-2.1.3.zip") as package:
            package.extractall(self.room / "unpacked")
        self.assertEqual(snapshot(self.room / "unpacked" / "Client-2.1.3"), snapshot(self.client))

    def test_version_of_the_tool_is_told(self) -> None:
        told = self.run_tool([TOOL, "--version"])
        self.assertEqual((told.returncode, told.stderr), (0, ""))
        self.assertRegex(told.stdout, r"\Apublish [0-9]+\.[0-9]+\.[0-9]+\n\Z")

    def test_wrong_command_line_is_json_on_request(self) -> None:
        for more in (["--json"], ["tar", "--json"], self.command("2", "--json", "x")[1:]):
            command = [TOOL, *more]
            wrong = self.run_tool(command)
            self.assertEqual(wrong.returncode, 2, command)
            result = json.loads(wrong.stdout)
            self.assertFalse(result["ok"])
            self.assertEqual([reason["rule"] for reason in result["refusals"]], ["usage"])
            self.assertIn(result["refusals"][0]["message"], wrong.stderr)

    def test_wrong_command_line_is_told_apart(self) -> None:
        for command in ([TOOL], [TOOL, "tar"], [TOOL, "verify"], self.command() + ["--colour"]):
            wrong = self.run_tool(command)
            self.assertEqual(wrong.returncode, 2, command)
            self.assertEqual(wrong.stdout, "")
            self.assertEqual(len(wrong.stderr.splitlines()), 1)
            self.assertIn("; see publish ", wrong.stderr)

    def test_help_is_no_failure(self) -> None:
        for command in ([], ["zip"], ["installer"], ["verify"], ["rollout"], ["report"]):
            told = self.run_tool([TOOL, *command, "--help"])
            self.assertEqual((told.returncode, told.stderr), (0, ""))
            self.assertIn("publish verify" if not command else "Example:", told.stdout)

    def test_json_is_all_there_is_on_the_standard_output(self) -> None:
        done = self.publish("2.1.3", "--json")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        result = json.loads(done.stdout)
        package = Path(result["package"])
        self.assertTrue(result["ok"])
        self.assertEqual(result["sha256"], hashlib.sha256(package.read_bytes()).hexdigest())
        self.assertEqual(result["size"], package.stat().st_size)
        verified = self.run_tool([TOOL, "verify", str(self.site), "--json"])
        self.assertEqual(json.loads(verified.stdout)["entries"], 6)

    def test_steps_are_plain_lines_without_a_terminal(self) -> None:
        done = self.publish()
        self.assertEqual(
            [line.split(",")[0] for line in done.stderr.splitlines()],
            ["publish: packing", "publish: digests"],
        )
        self.assertNotIn("\r", done.stderr)

    def test_a_terminal_gets_a_bar_that_goes_away(self) -> None:
        ours, theirs = pty.openpty()
        with subprocess.Popen(self.command(), stdout=subprocess.DEVNULL, stderr=theirs) as tool:
            self.assertEqual(tool.wait(TIME_LIMIT), 0)
        os.close(theirs)
        # What was written to a terminal is there until it is read; then it ends.
        fcntl.fcntl(ours, fcntl.F_SETFL, os.O_NONBLOCK)
        shown = b""
        try:
            while piece := os.read(ours, 65536):
                shown += piece
        except OSError:
            pass
        os.close(ours)
        self.assertIn(b"\rpacking", shown)
        self.assertIn(b"[", shown)
        self.assertTrue(shown.endswith(b" \r"), shown[-20:])

    def test_full_disk_leaves_nothing_behind(self) -> None:
        self.assertEqual(self.publish().returncode, 0)
        before = snapshot(self.site)
        self.make_client_large()

        def allow_little() -> None:
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (5 << 20, 5 << 20))

        failed = self.run_tool(self.command("2.2.0"), allow_little)
        self.assertEqual(failed.returncode, 1)
        self.assertIn("free some disk space", failed.stderr)
        self.assertEqual(snapshot(self.site), before)

    def test_interruption_leaves_nothing_behind(self) -> None:
        self.assertEqual(self.publish().returncode, 0)
        for wish in (signal.SIGINT, signal.SIGTERM):
            before = snapshot(self.site)
            tool = self.start_and_wait_for_half_a_package()
            tool.send_signal(wish)
            _, errors = tool.communicate(timeout=TIME_LIMIT)
            self.assertEqual(tool.returncode, 1)
            self.assertIn("publish: interrupted", errors)
            self.assertEqual(snapshot(self.site), before)

    def test_killed_in_the_middle_it_leaves_no_half_file_to_serve(self) -> None:
        self.assertEqual(self.publish().returncode, 0)
        before = served(self.site)
        tool = self.start_and_wait_for_half_a_package()
        tool.kill()
        tool.communicate(timeout=TIME_LIMIT)
        self.assertEqual(served(self.site), before)
        self.assertEqual(self.run_tool([TOOL, "verify", str(self.site)]).returncode, 0)

        # The next one is not held up, and tidies up.
        again = self.publish("2.2.0")
        self.assertEqual(again.returncode, 0, again.stderr)
        self.assertFalse((self.site / ".publish").exists())
        self.assertEqual(self.run_tool([TOOL, "verify", str(self.site)]).returncode, 0)

    def test_a_reader_never_sees_a_half_release(self) -> None:
        self.assertEqual(self.publish().returncode, 0)
        self.make_client_large()
        versions = set()
        with subprocess.Popen(
            self.command("2.2.0"), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL
        ) as tool:
            while tool.poll() is None:
                listed = json.loads((self.site / "check" / "now" / "releases.json").read_bytes())
                release = listed["releases"][-1]
                package = self.site / "packages" / release["id"]
                self.assertEqual(package.stat().st_size, release["size"])
                offer = json.loads(self.offer(release["version"]).read_bytes())["biz"]
                self.assertEqual(offer["packageSize"], release["size"])
                versions.add(release["version"])
        self.assertEqual(tool.returncode, 0)
        self.assertIn("2.1.3", versions)

    def test_two_at_a_time_are_refused(self) -> None:
        tool = self.start_and_wait_for_half_a_package()
        second = self.publish("2.3.0")
        self.assertEqual(second.returncode, 1)
        self.assertIn("another process is changing this tree", second.stderr)
        _, errors = tool.communicate(timeout=TIME_LIMIT)
        self.assertEqual(tool.returncode, 0, errors)
        self.assertEqual(self.run_tool([TOOL, "verify", str(self.site)]).returncode, 0)

    def test_installer_is_published_as_it_is(self) -> None:
        setup = self.room / "Setup-2.1.3.exe"
        setup.write_bytes(b"MZ installer")
        command = self.command("2.1.3")
        command[1:6] = ["installer", "--file", str(setup)]
        done = self.run_tool(command)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual((self.site / "packages" / setup.name).read_bytes(), b"MZ installer")

    def test_same_folder_gives_the_same_bytes(self) -> None:
        self.assertEqual(self.publish().returncode, 0)
        first = snapshot(self.site / "packages")
        shutil.rmtree(self.site)
        for path in self.client.rglob("*"):
            os.utime(path, (10**9, 10**9))
        self.assertEqual(self.publish().returncode, 0)
        self.assertEqual(snapshot(self.site / "packages"), first)


if __name__ == "__main__":
    TOOL = sys.argv.pop(1)
    unittest.main()
