#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Plans that advance by the logs, copies to nodes, and releases that move to another tree."""

import contextlib
import datetime
import gzip
import json
import os
import pty
import signal
import subprocess
import sys
import unittest
from pathlib import Path

from publishertest import TIME_LIMIT, PublisherTest


class Tree(PublisherTest):
    """Each test has a tree with 2.0.0 for everybody."""

    def setUp(self) -> None:
        super().setUp()
        self.publish("2.0.0", "--share", "100")

    def refused(self, *arguments: object) -> str:
        """Runs it, requires a refusal and returns its only line."""
        done = self.run_tool(*arguments)
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        lines = [line for line in done.stderr.splitlines() if "; " in line]
        self.assertEqual(len(lines), 1, done.stderr)
        return lines[0]

    def publish(self, version: str, *more: str, site: Path = None) -> None:
        """Publishes the client."""
        self.succeed(*self.zip(version, *more, site=site))

    def release(self, version: str, site: Path = None) -> dict:
        """The entry of a release in the list."""
        listed = json.loads(self.succeed("list", site or self.site, "--json"))
        return {release["version"]: release for release in listed["releases"]}[version]


class Plans(Tree):
    """publish rollout --plan and publish advance."""

    def setUp(self) -> None:
        super().setUp()
        self.publish("2.1.0")
        self.succeed("rollout", self.site, "--version", "2.1.0", "--plan", "1% 1d, 10% 2h, 100%")
        self.log = self.room / "updates.log"
        self.began = datetime.datetime.now(datetime.timezone.utc)

    def let_time_pass(self, **time: int) -> None:
        """Makes the plan and its step begin earlier."""
        file = self.site / "check" / "now" / "releases.json"
        listed = json.loads(file.read_text())
        for release in listed["releases"]:
            for key in ("planBegan", "stepBegan"):
                if release[key]:
                    began = datetime.datetime.fromisoformat(release[key].replace("Z", "+00:00"))
                    began -= datetime.timedelta(**time)
                    release[key] = began.strftime("%Y-%m-%dT%H:%M:%SZ")
        file.write_text(json.dumps(listed))

    def line(self, number: int, seconds: int, **fields: str) -> str:
        """A line of the log, from the network of this number."""
        entry = {
            "time": (self.began + datetime.timedelta(seconds=seconds)).isoformat("T", "seconds"),
            "address": f"10.{number // 250}.{number % 250}.1", "method": "POST", "path": "/check",
            "status": "200", "bytes": 700, "seconds": 0.001, "completed": "OK", "version": "2.0.0",
            "answer": "2.1.0", "package": "Client-2.1.0.zip", "tls": "TLSv1.3",
        }
        return json.dumps({**entry, **fields}, separators=(",", ":")) + "\n"

    def download(self, number: int, seconds: int, version: str, completed: str = "OK") -> str:
        """A line with the download of a package."""
        return self.line(
            number, seconds, method="GET", path=f"/packages/Client-{version}.zip", version="",
            answer="", package="", completed=completed,
        )

    def write_log(self, good: int, interrupted: int = 0, unchanged: int = 0,
                  before: int = 40) -> None:
        """Writes a log of networks that update, break off or return with the old version, and of
        earlier downloads."""
        checks, returns = [], []
        downloads = [self.download(number, 0, "2.0.0") for number in range(before)]
        for number in range(good + interrupted + unchanged):
            checks.append(self.line(number, 1))
            downloads.append(
                self.download(number, 2, "2.1.0", "" if number < interrupted else "OK"))
            if number >= interrupted:
                version = "2.0.0" if number < interrupted + unchanged else "2.1.0"
                answer = {} if version == "2.0.0" else {"answer": "none", "package": ""}
                returns.append(self.line(number, 3, version=version, **answer))
        self.log.write_text("".join(checks + downloads + returns))

    def advance(self, *more: object) -> str:
        """The output of publish advance."""
        return self.succeed("advance", self.site, "--log", self.log, *more)

    def test_the_first_step_comes_into_force_at_once(self) -> None:
        self.assertEqual(self.release("2.1.0")["share"], 1)

    def test_a_step_lasts_as_long_as_planned(self) -> None:
        self.write_log(good=30)
        self.assertIn("2.1.0 stays at 1 % until ", self.advance())
        self.let_time_pass(hours=23)
        self.assertIn("stays at 1 %", self.advance())
        self.let_time_pass(hours=1)
        self.assertIn("advanced 2.1.0 to 10 %", self.advance())
        self.assertIn("stays at 10 %", self.advance())
        self.let_time_pass(hours=2)
        self.assertIn("advanced 2.1.0 to 100 %", self.advance())
        self.assertIn("has reached the end of its plan", self.advance())
        self.assertEqual(self.release("2.1.0")["share"], 100)

    def test_a_plan_ends_when_its_last_step_has_lasted_its_time(self) -> None:
        self.write_log(good=30)
        for _ in range(2):
            self.let_time_pass(days=1)
            self.advance()
        self.log.write_text("")
        self.assertIn("has reached the end of its plan", self.advance())
        self.let_time_pass(hours=2)
        self.assertIn("ended the plan of 2.1.0 at 100 %", self.advance())
        self.assertEqual(self.release("2.1.0")["plan"], "")
        self.assertIn("has no plan", self.advance())

    def test_the_last_step_is_judged_too(self) -> None:
        self.write_log(good=30)
        for _ in range(2):
            self.let_time_pass(days=1)
            self.advance()
        self.write_log(good=30, interrupted=30)
        self.assertIn("is stopped", self.refused("advance", self.site, "--log", self.log))

    def test_a_release_behind_one_for_everybody_is_skipped(self) -> None:
        self.publish("2.2.0", "--share", "100")
        self.log.write_text("")
        self.let_time_pass(days=9)
        self.assertIn("because 2.2.0 is offered to everyone", self.advance())
        self.assertEqual(self.release("2.1.0")["share"], 1)

    def test_several_plans_advance_by_the_same_logs(self) -> None:
        self.publish("2.2.0")
        self.write_log(good=30)
        self.let_time_pass(days=1)
        self.succeed("rollout", self.site, "--version", "2.2.0", "--plan", "1% 1d, 100%")
        with self.log.open("a") as log:
            log.write(self.line(1, 9, answer="2.2.0", package="Client-2.2.0.zip"))
        told = self.advance()
        self.assertIn("advanced 2.1.0 to 10 %", told)
        self.assertIn("2.2.0 stays at 1 %", told)

    def test_a_plan_begins_where_the_release_is(self) -> None:
        self.succeed("rollout", self.site, "--version", "2.1.0", "--share", "5")
        self.succeed("rollout", self.site, "--version", "2.1.0", "--plan", "1% 1d, 10% 2h, 100%")
        self.assertEqual(self.release("2.1.0")["share"], 5)
        self.write_log(good=30)
        self.let_time_pass(days=1)
        self.assertIn("advanced 2.1.0 to 10 %", self.advance())

    def test_a_dry_run_changes_nothing(self) -> None:
        self.write_log(good=30)
        self.let_time_pass(days=1)
        self.assertIn("would be done: advanced 2.1.0 to 10 %", self.advance("--dry-run"))
        self.assertEqual(self.release("2.1.0")["share"], 1)
        for command in ("stop", "resume"):
            told = self.succeed(command, self.site, "--dry-run")
            self.assertTrue(told.startswith("would be done: "), told)
        self.assertFalse((self.site / "check" / "stop").exists())

    def test_interrupted_downloads_stop_the_release(self) -> None:
        self.write_log(good=30, interrupted=10)
        self.let_time_pass(days=1)
        dry = self.refused("advance", self.site, "--log", self.log, "--dry-run")
        self.assertIn("would be done: 2.1.0 is stopped", dry)
        refused = self.refused("advance", self.site, "--log", self.log)
        self.assertIn("2.1.0 is stopped: 25.0 % of 40 downloads were interrupted, and 0.0 % before",
                      refused)
        release = self.release("2.1.0")
        self.assertEqual((release["state"], release["share"]), ("stopped", 1))
        self.assertIn("2.1.0 is stopped; ", self.refused("advance", self.site, "--log", self.log))

    def test_a_higher_limit_lets_it_go_on(self) -> None:
        self.write_log(good=30, interrupted=10)
        self.let_time_pass(days=1)
        self.assertIn("to 10 %", self.advance("--stop-above", "interrupted=30"))

    def test_clients_that_stay_old_stop_the_release(self) -> None:
        self.write_log(good=30, unchanged=10)
        refused = self.refused("advance", self.site, "--log", self.log)
        self.assertIn("25.0 % of the 40 networks that downloaded the package came back", refused)

    def test_chance_does_not_stop_a_release(self) -> None:
        self.let_time_pass(days=1)
        for figures in ({"interrupted": 1}, {"unchanged": 1}):
            self.write_log(good=9, **figures)
            self.assertIn("to 10 %", self.advance("--dry-run"))

    def test_of_a_hundred_downloads_the_limit_itself_counts(self) -> None:
        self.let_time_pass(days=1)
        self.write_log(good=98, interrupted=2, before=100)
        self.assertIn("to 10 %", self.advance("--dry-run"))
        self.write_log(good=97, interrupted=3, before=100)
        self.assertIn("3.0 % of 100 downloads", self.refused("advance", self.site, "--log", self.log))

    def test_without_earlier_downloads_every_interrupted_one_counts(self) -> None:
        self.write_log(good=30, interrupted=10, before=9)
        self.assertIn("25.0 % of 40 downloads were interrupted, and the logs have no earlier "
                      "downloads to compare with",
                      self.refused("advance", self.site, "--log", self.log))

    def test_a_resumed_plan_begins_where_it_was_resumed(self) -> None:
        self.began -= datetime.timedelta(hours=1)
        self.write_log(good=30, interrupted=10)
        self.let_time_pass(days=3)
        self.refused("advance", self.site, "--log", self.log)
        self.succeed("resume", self.site, "--version", "2.1.0")
        self.began += datetime.timedelta(hours=2)
        with self.log.open("a") as log:
            log.write(self.line(0, 0))
        self.assertIn("2.1.0 stays at 1 %", self.advance())

    def test_time_while_everything_is_stopped_does_not_count(self) -> None:
        self.succeed("stop", self.site)
        self.let_time_pass(days=3)
        self.succeed("resume", self.site)
        self.began += datetime.timedelta(hours=1)
        self.write_log(good=30)
        self.assertIn("2.1.0 stays at 1 %", self.advance())

    def lock(self) -> None:
        """Locks the tree, as a process that changes it does."""
        staging = self.site / ".publish"
        staging.mkdir()
        owner = Path("/proc/self/exe").resolve().name
        (staging / "lock").write_text(f"{os.getpid()}\n{owner}\n{os.uname().nodename}\n")

    def test_a_plan_that_waits_does_not_lock_the_tree(self) -> None:
        self.write_log(good=30)
        self.lock()
        self.assertIn("stays at 1 %", self.advance())

    def test_a_stop_that_has_to_wait_tells_of_the_one_that_does_not(self) -> None:
        self.lock()
        at_once = '; "publish stop SITE" without --version works at once'
        stop = self.refused("stop", self.site, "--version", "2.1.0")
        self.assertTrue(stop.endswith("; wait until it has finished" + at_once), stop)
        self.assertNotIn(at_once, self.refused("resume", self.site, "--version", "2.1.0"))
        self.succeed("stop", self.site)
        self.assertTrue((self.site / "check" / "stop").exists())

    def has_opened_the_log(self, process: subprocess.Popen) -> bool:
        """Whether the process has the log open."""
        with contextlib.suppress(OSError):
            files = Path(f"/proc/{process.pid}/fd").iterdir()
            return any(file.resolve() == self.log.resolve() for file in files)
        return False

    def test_a_release_can_be_stopped_while_logs_are_read(self) -> None:
        self.write_log(good=30)
        self.let_time_pass(days=1)
        with self.log.open("a") as log:
            log.truncate(2**28)  # sparse, but it takes a while to read
        command = [self.tool, "advance", self.site, "--log", self.log]
        with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as advance:
            while not self.has_opened_the_log(advance):
                self.assertIsNone(advance.poll(), "the log was read too fast")
            advance.send_signal(signal.SIGSTOP)
            try:
                self.succeed("stop", self.site, "--version", "2.1.0")
            finally:
                advance.send_signal(signal.SIGCONT)
            self.assertIn("was changed while the logs were read", advance.communicate()[0])
        self.assertEqual(self.release("2.1.0")["state"], "stopped")
        self.assertEqual(self.release("2.1.0")["share"], 1)

    def test_a_damaged_plan_is_refused(self) -> None:
        self.write_log(good=30)
        file = self.site / "check" / "now" / "releases.json"
        whole = json.loads(file.read_text())
        for key, value in (("plan", "garbage"), ("planBegan", ""), ("stepBegan", "")):
            damaged = json.loads(json.dumps(whole))
            damaged["releases"][1][key] = value
            file.write_text(json.dumps(damaged))
            refused = self.refused("advance", self.site, "--log", self.log)
            self.assertIn(f'"{key}" of a release cannot be read; ', refused)

    def test_no_progress_is_mailed_by_cron(self) -> None:
        self.write_log(good=30)
        done = self.run_tool("advance", self.site, "--log", self.log)
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_progress_is_shown_on_a_terminal(self) -> None:
        self.write_log(good=30)
        for command in (["report", self.log], ["advance", self.site, "--log", self.log]):
            ours, theirs = pty.openpty()
            with subprocess.Popen([self.tool, *command], stdout=subprocess.DEVNULL,
                                  stderr=theirs) as tool:
                os.close(theirs)
                self.assertEqual(tool.wait(TIME_LIMIT), 0)
            self.assertRegex(os.read(ours, 65536), rb"\A\r[a-z ]+\[[#.]{40}\] +[0-9]+% of ")
            os.close(ours)

    def test_a_gzipped_log_counts_like_a_plain_one(self) -> None:
        self.write_log(good=30)
        self.let_time_pass(days=1)
        content = self.log.read_bytes()
        self.log = self.room / "updates.log.2.gz"
        self.log.write_bytes(gzip.compress(content))
        self.assertIn("advanced 2.1.0 to 10 %", self.advance())

    def test_only_the_named_product_is_judged(self) -> None:
        logs = []
        for product, figures in (("desk", {"good": 30}), ("till", {"good": 0, "interrupted": 30})):
            self.write_log(**figures)
            logs.append(self.log.read_text().replace('"path":"/', f'"path":"/{product}/'))
        self.log.write_text("".join(logs))
        self.let_time_pass(days=1)
        told = self.advance("--product", "desk", "--dry-run")
        self.assertIn("advanced 2.1.0 to 10 %", told)
        refused = self.refused("advance", self.site, "--log", self.log, "--product", "till")
        self.assertIn("2.1.0 is stopped: 100.0 % of 30 downloads", refused)

    def test_a_plan_has_to_raise_the_share(self) -> None:
        self.succeed("rollout", self.site, "--version", "2.1.0", "--share", "50")
        refused = self.refused("rollout", self.site, "--version", "2.1.0", "--plan", "1% 1d, 50%")
        self.assertIn("2.1.0 is already offered to 50 %; ", refused)
        self.assertEqual(self.release("2.1.0")["plan"], "")

    def test_networks_with_a_later_release_have_not_stayed_old(self) -> None:
        self.publish("2.2.0")
        self.write_log(good=30, unchanged=10)
        with self.log.open("a") as log:
            for number in range(10):
                log.write(self.line(number, 4, version="2.2.0", answer="none", package=""))
        self.assertIn("stays at 1 %", self.advance())

    def test_the_product_is_asked_for_where_logs_have_several(self) -> None:
        self.log.write_text(self.line(1, 1, path="/desk/check"))
        refused = self.refused("advance", self.site, "--log", self.log)
        self.assertIn("; if there are several products, name the one of the tree with --product", refused)

    def test_without_figures_nothing_changes(self) -> None:
        self.let_time_pass(days=2)
        for content in ("", "not a log\n", self.line(1, 1, answer="none", package="")):
            self.log.write_text(content)
            refused = self.refused("advance", self.site, "--log", self.log)
            self.assertIn("no check that was offered 2.1.0", refused)
        self.assertIn("nowhere.log", self.refused("advance", self.site, "--log", "nowhere.log"))
        self.assertEqual(self.release("2.1.0")["share"], 1)

    def test_figures_from_before_the_plan_do_not_count(self) -> None:
        self.began -= datetime.timedelta(days=3)
        self.write_log(good=0, interrupted=30)
        former = self.log.read_text()
        self.began += datetime.timedelta(days=3)
        self.write_log(good=30)
        self.log.write_text(former + self.log.read_text())
        self.assertIn("stays at 1 %", self.advance())

    def test_a_share_set_by_hand_ends_the_plan(self) -> None:
        self.succeed("rollout", self.site, "--version", "2.1.0", "--share", "5")
        self.write_log(good=30)
        self.let_time_pass(days=9)
        self.assertIn("has no plan", self.advance())


class Push(Tree):
    """publish push."""

    def setUp(self) -> None:
        super().setUp()
        self.nodes = [self.room / "node1" / "updates", self.room / "node2" / "updates"]
        self.push = ["push", self.site, *self.nodes]

    def test_nodes_have_the_tree_afterwards(self) -> None:
        self.succeed(*self.push)
        self.publish("2.1.0", "--share", "1")
        self.succeed("stop", self.site)
        self.succeed(*self.push)
        for node in self.nodes:
            self.assertIn("follows every rule", self.succeed("verify", node))
            self.assertEqual(self.release("2.1.0", node)["share"], 1)
            self.assertTrue((node / "check" / "stop").exists())
            self.assertEqual(
                os.listdir(node / "check" / "generations"),
                os.listdir(self.site / "check" / "generations"),
            )
        self.succeed("resume", self.site)
        self.succeed(*self.push)
        self.assertFalse((self.nodes[1] / "check" / "stop").exists())

    def test_other_bytes_of_a_package_are_refused_before_anything_is_written(self) -> None:
        self.succeed(*self.push)
        package = self.nodes[1] / "packages" / "Client-2.0.0.zip"
        package.write_bytes(package.read_bytes()[:-1] + b"x")
        self.publish("2.1.0")
        refused = self.refused(*self.push)
        self.assertIn("node2/updates has Client-2.0.0.zip with different content", refused)
        self.assertFalse((self.nodes[0] / "packages" / "Client-2.1.0.zip").exists())

    def test_packages_reach_all_nodes_before_the_decisions_reach_one(self) -> None:
        order = self.succeed(*self.push, "--dry-run")
        packages = order.index(f"{self.nodes[1]}/packages/")
        self.assertLess(packages, order.index("--include=/now"))
        self.assertFalse(self.nodes[0].exists())

    def test_a_node_that_cannot_be_reached_is_named(self) -> None:
        (self.room / "file").touch()
        refused = self.refused("push", self.site, self.room / "file" / "updates")
        self.assertIn("file/updates: rsync failed with exit code ", refused)

    def test_a_stop_reaches_the_others_when_a_node_cannot_be_reached(self) -> None:
        self.succeed(*self.push)
        self.publish("2.1.0")
        self.succeed("stop", self.site)
        (self.room / "file").touch()
        self.refused("push", self.site, self.room / "file" / "updates", *self.nodes)
        for node in self.nodes:
            self.assertTrue((node / "check" / "stop").exists())
            self.assertFalse((node / "packages" / "Client-2.1.0.zip").exists())
        (self.room / "file").unlink()
        self.succeed(*self.push)
        self.assertTrue((self.nodes[1] / "packages" / "Client-2.1.0.zip").exists())

    def test_a_stop_of_the_node_alone_is_told_when_it_is_lifted(self) -> None:
        self.assertNotIn("check/stop", self.succeed(*self.push))
        (self.nodes[1] / "check" / "stop").touch()
        self.assertIn(f"{self.nodes[1]}: check/stop is removed", self.succeed(*self.push))
        self.assertFalse((self.nodes[1] / "check" / "stop").exists())

    def test_a_link_as_the_stop_file_is_refused_and_lifts_no_stop(self) -> None:
        self.succeed(*self.push)
        stopped = self.nodes[1] / "check" / "stop"
        stopped.touch()
        link = self.site / "check" / "stop"
        for target in ("nowhere", "none.json"):
            link.symlink_to(target)
            self.assertIn("check/stop is a link, ", self.refused(*self.push))
            self.assertFalse(stopped.is_symlink())
            self.assertTrue(stopped.exists())
            link.unlink()

    def test_the_web_server_can_read_what_is_copied_whatever_the_mask(self) -> None:
        for node in self.nodes:
            node.mkdir(parents=True)
        self.nodes[0].chmod(0o775)
        subprocess.run([self.tool, *map(str, self.push)], check=True, timeout=TIME_LIMIT, umask=0o077)
        self.assertEqual(self.nodes[0].stat().st_mode & 0o777, 0o775)
        copied = [path for path in self.nodes[0].rglob("*") if not path.is_symlink()]
        self.assertTrue(copied)
        for path in copied:
            mode = 0o755 if path.is_dir() else 0o644
            self.assertEqual(path.stat().st_mode & 0o777, mode, path)

    def test_a_missing_package_is_refused_while_it_is_offered(self) -> None:
        package = self.site / "packages" / "Client-2.0.0.zip"
        package.unlink()
        self.assertIn("which is offered, is missing; ", self.refused(*self.push))
        self.assertFalse(self.nodes[0].exists())
        self.succeed("stop", self.site, "--version", "2.0.0")
        self.succeed(*self.push)

    def test_places_that_are_no_folder_of_a_node_are_refused(self) -> None:
        for node in ("node1", "node1:", ":/updates", "[::1]", "2001:db8::1:/srv/updates"):
            self.assertIn(f'"{node}" ', self.refused("push", self.site, self.nodes[0], node))
        self.assertFalse(self.nodes[0].exists())

    def through_ssh(self, *nodes: str) -> subprocess.CompletedProcess:
        """Replaces ssh by a script that prints a greeting, records the host and fails for "dead"."""
        ssh = self.room / "ssh"
        ssh.write_text(
            f"#!/bin/sh\necho Welcome >&2\necho \"$1\" >>'{self.room}/hosts'\n"
            "[ \"$1\" = dead ] && { echo 'ssh: no route to host' >&2; exit 255; }\n"
            'shift\nexec sh -c "$*"\n'
        )
        ssh.chmod(0o755)
        environment = {**os.environ, "RSYNC_RSH": str(ssh)}
        return self.run_tool("push", self.site, *nodes, environment=environment)

    def test_hosts_and_folders_are_taken_as_they_are_written(self) -> None:
        folder = self.room / "a folder"
        done = self.through_ssh(f"[2001:db8::1]:{folder}/", f"node2:{self.nodes[1]}")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(
            set((self.room / "hosts").read_text().split()), {"2001:db8::1", "node2"}
        )
        for node in (folder, self.nodes[1]):
            self.assertIn("follows every rule", self.succeed("verify", node))

    def test_the_reason_of_a_failure_is_told(self) -> None:
        done = self.through_ssh(f"node1:{self.nodes[0]}", "dead:/srv/updates")
        self.assertEqual(done.returncode, 1)
        self.assertIn("dead:/srv/updates: rsync failed with exit code ", done.stderr)
        self.assertIn("ssh: no route to host", done.stderr)
        self.assertFalse(self.nodes[0].exists())

    def test_a_copy_that_was_interrupted_is_completed(self) -> None:
        self.succeed(*self.push)
        self.publish("2.1.0", "--share", "100")
        # Each command that a dry run prints is a place to be interrupted at.
        commands = [
            line for line in self.succeed(*self.push, "--dry-run").splitlines()
            if line.startswith("rsync ")
        ]
        for command in commands:
            subprocess.run(["sh", "-c", command], check=True, timeout=TIME_LIMIT)
            for node in self.nodes:
                self.assertTrue((node / "check" / "now" / "releases.json").exists(), command)
        self.assertIn("follows every rule", self.succeed("verify", self.nodes[1]))
        for package in self.nodes[0].glob("check/answers/*/*"):
            package.unlink()
        self.succeed(*self.push)
        self.assertIn("follows every rule", self.succeed("verify", self.nodes[0]))


class Promote(Tree):
    """publish promote."""

    def test_the_identical_package_is_published_there(self) -> None:
        beta, client = self.site, self.room / "client-tree"
        self.publish("1.9.0", "--share", "100", site=client)
        self.succeed("promote", beta, client, "--version", "2.0.0")
        package = Path("packages") / "Client-2.0.0.zip"
        self.assertEqual((client / package).read_bytes(), (beta / package).read_bytes())
        self.assertEqual(self.release("2.0.0", client)["share"], 0)
        self.assertEqual(self.release("1.9.0", client)["share"], 100)
        self.succeed("verify", client)

    def test_a_damaged_package_is_refused(self) -> None:
        package = self.site / "packages" / "Client-2.0.0.zip"
        package.write_bytes(package.read_bytes()[:-1] + b"x")
        other = self.room / "other"
        refused = self.refused("promote", self.site, other, "--version", "2.0.0")
        self.assertIn("is damaged; publish the release again", refused)
        self.assertFalse(other.exists())

    def test_an_unknown_version_is_refused(self) -> None:
        refused = self.refused("promote", self.site, self.room / "other", "--version", "9")
        self.assertIn("has no release 9; ", refused)


class Networks(Tree):
    """publish rollout --network."""

    def test_networks_add_up_until_they_are_forgotten(self) -> None:
        rollout = ["rollout", self.site, "--version", "2.0.0", "--network"]
        self.succeed(*rollout, "192.0.2.0/24")
        self.succeed(*rollout, "198.51.100.7")
        self.assertEqual(self.release("2.0.0")["networks"], ["192.0.2.0/24", "198.51.100.7"])
        self.succeed(*rollout, "none", "--network", "203.0.113.0/24")
        self.assertEqual(self.release("2.0.0")["networks"], ["203.0.113.0/24"])


class Bandwidth(Tree):
    """publish rollout --link-gbit."""

    def test_a_line_that_is_too_small_is_warned_of(self) -> None:
        package = self.room / "Setup-2.1.0.exe"
        with package.open("wb") as file:
            file.write(b"MZ")
            file.truncate(60_000_000)
        self.succeed(
            "installer", "--file", package, "--version", "2.1.0", "--update", "optional",
            "--notes-zh", self.room / "zh.txt", "--notes-en", self.room / "en.txt",
            "--out", self.site,
        )
        rollout = ["rollout", self.site, "--version", "2.1.0", "--clients", "1000000"]
        done = self.run_tool(*rollout, "--share", "100", "--link-gbit", "100")
        self.assertEqual(done.returncode, 0)
        self.assertIn("may need 111.1 Gbit/s, but only 100 are available; ", done.stderr)
        done = self.run_tool(*rollout, "--share", "5", "--link-gbit", "10")
        self.assertEqual((done.returncode, done.stderr), (0, ""))


class Others(Tree):
    """How commands are called whose work is tested elsewhere."""

    def test_list_tells_every_release(self) -> None:
        self.publish("2.1.0")
        told = self.succeed("list", self.site).splitlines()
        self.assertRegex(told[0], r"^2\.1\.0 +zip .* 0 % published$")
        self.assertRegex(told[1], r"^2\.0\.0 +zip .* 100 % rolled out$")
        self.succeed("stop", self.site)
        self.assertIn("All offers are stopped.", self.succeed("list", self.site))

    def test_report_reads_logs_and_writes_a_page(self) -> None:
        log = self.room / "updates.log"
        log.write_text(
            '{"time":"2026-11-21T05:31:49+00:00","address":"192.0.2.7","method":"POST",'
            '"path":"/check","status":"200","bytes":715,"seconds":0.001,"completed":"OK",'
            '"version":"2.0.1","answer":"2.1.3","package":"Client-2.1.3.zip","tls":"TLSv1.3"}\n'
        )
        told = json.loads(self.succeed("report", log, "--json", "--html", self.room / "page.html"))
        self.assertTrue(told["ok"])
        self.assertIn("2.1.3", (self.room / "page.html").read_text(encoding="utf-8"))

    def test_check_config_refuses_what_updates_could_not_work_with(self) -> None:
        file = self.room / "updateconfig.json"
        file.write_text("{}")
        self.assertEqual(self.run_tool("check-config", file).returncode, 1)
        self.assertEqual(self.run_tool("check-config").returncode, 2)


if __name__ == "__main__":
    PublisherTest.tool = sys.argv.pop(1)
    unittest.main()
