#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Runs the fleet of release/fleet/ and makes its parts fail while clients send requests.

prove-fleet.py PROJECT WORK [--small] [--windows] [--clients NUMBER]: called by scripts/prove-fleet.
Ends with a table.
"""

import argparse
import bisect
import collections
import contextlib
import dataclasses
import json
import os
import pwd
import shutil
import signal
import statistics
import subprocess
import sys
import threading
import time
from pathlib import Path

from fleet import BALANCER_ADDRESS, PATIENCE_SECONDS, Fleet, wait_until
from fleetalerts import Monitoring

parser = argparse.ArgumentParser()
parser.add_argument("project", type=Path)
parser.add_argument("work", type=Path)
parser.add_argument("--small", action="store_true")
parser.add_argument("--windows", action="store_true")
parser.add_argument("--clients", type=int)
OPTIONS = parser.parse_args()
PROJECT, WORK = OPTIONS.project.resolve(), OPTIONS.work.resolve()
PUBLISH = PROJECT / "build/native/publish"
CLIENTS = PROJECT / "build/native/bench/fleetclients"
SITE = WORK / "site"
UPDATER_SECONDS = 10  # the limit of its check
ALL_DOWN_ALERTS = ("UpdatesAddressDown", "UpdatesFrontErrors", "UpdatesNoChecks", "UpdatesNodeDown")
FIRST_CLIENT, FIRST_LOAD, FIRST_DOWNLOAD = "127.16.0.1", "127.64.0.1", "127.96.0.1"


@dataclasses.dataclass(frozen=True)
class Sizes:
    """The numbers that a small run reduces."""

    clients: int  # that check once each
    direct: int  # of them, that check at a single node, each with a TLS connection
    rate: int  # checks a second while something fails
    seconds_down: int
    downloads: int  # at the same time
    package: int  # bytes


FULL = Sizes(100_000, 20_000, 150, 30, 1_000, 2_000_000)
SMALL = Sizes(2_000, 500, 40, 5, 100, 500_000)
SIZES = SMALL if OPTIONS.small else FULL
if OPTIONS.clients:
    SIZES = dataclasses.replace(SIZES, clients=OPTIONS.clients,
                                direct=min(SIZES.direct, OPTIONS.clients))


@dataclasses.dataclass(frozen=True)
class Request:
    """A line of fleetclients."""

    start: float
    seconds: float
    address: str
    bytes: int
    result: str

    @property
    def end(self) -> float:
        """When the request ended."""
        return self.start + self.seconds

    @property
    def is_check(self) -> bool:
        """False for a download."""
        return not self.result.startswith("package-")

    @property
    def is_answered(self) -> bool:
        """Whether the answer is a decision or a package."""
        return self.result == "none" or "." in self.result or self.result == "package-206"


def fail(what: str) -> None:
    """Ends the proof."""
    raise SystemExit(f"prove-fleet: {what}")


def say(what: str) -> None:
    """Prints a headline."""
    print(f"\n== {what}", flush=True)


def tell(what: str) -> None:
    """Prints an observation."""
    print(f"    {what}", flush=True)


def publish(*arguments: object) -> None:
    """Runs one command of publish, which must succeed."""
    done = subprocess.run([PUBLISH, *map(str, arguments)], capture_output=True, text=True,
                          check=False, timeout=PATIENCE_SECONDS)
    if done.returncode != 0:
        fail(f"publish {arguments[0]} ended with {done.returncode}:\n{done.stderr}")


def package(version: str) -> str:
    """The path of a release's package."""
    return f"/packages/Client-{version}.zip"


def requests(text: str) -> list:
    """The requests in the output of fleetclients."""
    found = []
    for line in text.splitlines():
        start, seconds, address, count, result = line.split()
        found.append(Request(float(start), float(seconds), address, int(count), result))
    return found


def ask(port: int, first: str, count: int, threads: int, *kind: str) -> list:
    """Lets many clients send one request each; returns the requests."""
    done = subprocess.run([CLIENTS, *map(str, (port, first, count, threads, *kind))],
                          capture_output=True, text=True, check=True, timeout=600)
    found = requests(done.stdout)
    if len(found) != count:
        fail(f"{len(found)} of {count} requests came to an end")
    return found


def rate(found: list) -> float:
    """Requests a second."""
    return len(found) / (max(r.end for r in found) - min(r.start for r in found))


class Load:
    """Clients that send requests all the time, for a with statement."""

    def __init__(self, fleet: Fleet):
        self.file = WORK / "load.txt"
        self.fleet = fleet
        self.process = None
        self.read = 0  # bytes of the file
        self.found = []

    def __enter__(self) -> "Load":
        with self.file.open("w") as output:
            self.process = subprocess.Popen(
                [CLIENTS, str(self.fleet.front), FIRST_LOAD, "50000", "32", str(SIZES.rate)],
                stdout=output, start_new_session=True)
        self.wait_for(lambda r: r.is_check and r.is_answered, 10)
        return self

    def __exit__(self, *_) -> None:
        self.process.terminate()
        self.process.wait(PATIENCE_SECONDS)

    def requests(self, since: float = 0) -> list:
        """All requests that have begun since then and have ended."""
        with self.file.open("rb") as file:
            file.seek(self.read)
            text = file.read()
        text = text[: text.rfind(b"\n") + 1]
        self.read += len(text)
        self.found += requests(text.decode())
        # The lines are in the order in which the requests ended, except for some that ended at the same time.
        begin = bisect.bisect_left(self.found, since - 1, key=lambda r: r.end)
        return [r for r in self.found[begin:] if r.start >= since]

    def wait_for(self, condition, count: int, since: float = 0) -> None:
        """Waits until so many requests have met the condition."""
        wait_until(lambda: sum(map(condition, self.requests(since))) >= count, "requests")

    def settle(self) -> None:
        """Waits until some more requests were answered."""
        self.wait_for(lambda r: r.is_answered, SIZES.rate // 2, time.time())


class Proof:
    """The steps, in their order, and the rows of the table."""

    def __init__(self, fleet: Fleet, monitoring: Monitoring):
        self.fleet = fleet
        self.monitoring = monitoring
        self.rows = []
        self.figures = {}

    def row(self, step: str, seen: str, alerts: str = "") -> None:
        """Adds a row to the table, and prints it."""
        self.rows.append((step, seen, alerts))
        tell(seen)
        if alerts:
            tell(f"alert: {alerts}")

    def push(self) -> None:
        """Pushes the site to all nodes."""
        publish("push", SITE, *(node.tree for node in self.fleet.nodes))

    def make_release(self, version: str, *options: object) -> None:
        """Publishes a release with a package of the chosen size."""
        client = WORK / "client"
        (client / "~version").mkdir(parents=True, exist_ok=True)
        (client / "~version/version.json").write_text(json.dumps({"client": {"version": version}}))
        (client / "data.bin").write_bytes(os.urandom(SIZES.package))
        notes = WORK / "notes.txt"
        notes.write_text("What is new.")
        publish("zip", "--client", client, "--name", "Client", "--version", version,
                "--config-file", "~version/version.json", "--update", "optional",
                "--notes-zh", notes, "--notes-en", notes, "--out", SITE, *options)

    def share(self) -> None:
        """(a) The share, and whether the nodes agree."""
        say(f"{SIZES.clients:,} clients, a new TLS connection each, at a share of 10 %")
        found = ask(self.fleet.front, FIRST_CLIENT, SIZES.clients, 32, "once")
        at_front = {r.address: r.result for r in found}
        offered = sum(result == "2.1.0" for result in at_front.values())
        others = len(found) - offered - sum(result == "none" for result in at_front.values())
        # Each client is offered it with a probability of 1 in 10, independently: four standard deviations.
        allowed = 4 * (SIZES.clients * 0.1 * 0.9) ** 0.5
        tell(f"{offered:,} were offered the release, {others} got no answer; "
             f"{rate(found):,.0f} checks a second")
        if others:
            fail(f"no answer: {collections.Counter(at_front.values())}; is the machine too busy?")
        if abs(offered - SIZES.clients / 10) > allowed:
            fail("that is no chance")
        self.figures["handshakes_per_second_front"] = rate(found)
        self.figures["bytes_per_check"] = statistics.median(r.bytes for r in found)

        speeds = []
        for node in self.fleet.nodes:
            found = ask(node.port, FIRST_CLIENT, SIZES.clients, 8, "forward", BALANCER_ADDRESS)
            speeds.append(rate(found))
            different = sum(at_front[r.address] != r.result for r in found)
            tell(f"{node.name}, asked over kept connections: {different} decisions differ; "
                 f"{speeds[-1]:,.0f} checks a second")
            if different:
                fail("the nodes disagree")
        self.figures["kept_checks_per_second_per_node"] = statistics.median(speeds)
        forged = ask(self.fleet.nodes[0].port, FIRST_CLIENT, 200, 4, "forward", "127.0.0.3")
        if len({r.result for r in forged}) != 1:
            fail("a node believes somebody else who the client is")
        found = ask(self.fleet.nodes[0].port, FIRST_CLIENT, SIZES.direct, 32, "once")
        self.figures["checks_per_second_per_node"] = rate(found)
        tell(f"a node by itself, a TLS connection for each check: {rate(found):,.0f} a second")
        self.row(f"{SIZES.clients:,} clients, share of 10 %",
                 f"{100 * offered / SIZES.clients:.2f} % were offered the release; "
                 "all nodes decide the same for every client")

    def wait_for_node(self, node, is_up: bool) -> None:
        """Waits until the load balancer has noticed."""
        wait_until(lambda: (node.name in self.fleet.healthy()) == is_up, f"{node.name} up: {is_up}")

    def kill_one(self, load: Load) -> None:
        """(b) A node is killed under load."""
        say("One node is killed under load")
        node = self.fleet.nodes[0]
        began = time.time()
        load.settle()
        killed = time.time()
        node.program.kill()
        self.wait_for_node(node, False)
        noticed = time.time() - killed
        load.settle()
        alerts = self.monitoring.wait_for(began, "UpdatesNodeDown")
        node.start()
        self.wait_for_node(node, True)
        load.settle()
        found = load.requests(began)
        failed = [r for r in found if not r.is_answered]
        in_flight = [r for r in failed if r.start <= killed <= r.end]
        if len(failed) != len(in_flight):
            fail(f"failed, and not at the kill: {collections.Counter(r.result for r in failed)}")
        self.row("A node is killed",
                 f"{len(failed)} of {len(found):,} requests failed, those in flight at the kill; "
                 f"the load balancer left it out after {noticed:.1f} s", alerts)

    def restart_all(self, load: Load) -> None:
        """(b) Each node is restarted under load."""
        say("Each node is restarted in turn under load")
        began = time.time()
        for node in self.fleet.nodes:
            node.restart()
            self.wait_for_node(node, True)
            load.settle()
        found = load.requests(began)
        failed = [r for r in found if not r.is_answered]
        if failed:
            fail(f"failed: {collections.Counter(r.result for r in failed)}")
        self.row("Each node is restarted in turn", f"0 of {len(found):,} requests failed",
                 self.monitoring.told_since(began))

    def push_under_load(self, load: Load) -> None:
        """(c) Another release for everybody."""
        say("Another release is pushed to all nodes under load")
        began = time.time()
        self.make_release("2.2.0", "--share", "100")
        self.push()
        load.wait_for(lambda r: r.result == "2.2.0", SIZES.rate)
        load.wait_for(lambda r: r.result == "package-206", SIZES.rate, time.time())
        found = load.requests(began)
        offers = sum(r.result == "2.2.0" for r in found)
        failed = [r for r in found if not r.is_answered]
        if failed:
            fail(f"failed: {collections.Counter(r.result for r in failed)}")
        self.row("Another release is pushed",
                 f"{offers:,} offers of it under way, its package was there for each of them",
                 self.monitoring.told_since(began))

    def stop(self, load: Load) -> None:
        """(d) Everything is stopped."""
        say("publish stop, pushed to all nodes")
        began = time.time()
        publish("stop", SITE)
        self.push()
        pushed = time.time()
        load.wait_for(lambda r: r.result == "none", SIZES.rate, pushed)
        alerts = self.monitoring.wait_for(began, "UpdatesNothingOffered")
        offers = [r.end for r in load.requests(began) if r.result in ("2.1.0", "2.2.0")]
        late = [r for r in load.requests(pushed) if r.result in ("2.1.0", "2.2.0")]
        if late:
            fail(f"{len(late)} offers after the stop was everywhere")
        seconds = max(offers, default=began) - began
        publish("resume", SITE)
        self.push()
        load.wait_for(lambda r: r.result == "2.2.0", SIZES.rate // 2, time.time())
        self.row("publish stop, pushed to all nodes",
                 f"the last offer ended {seconds:.1f} s after the command was given", alerts)

    def all_down(self, load: Load) -> None:
        """(e) No node is left."""
        say(f"All nodes are down for {SIZES.seconds_down} s")
        path, size = package("2.2.0"), (SITE / package("2.2.0")[1:]).stat().st_size
        began = time.time()
        for node in self.fleet.nodes:
            node.program.kill()
        down = time.time()
        wait_until(lambda: not self.fleet.healthy(), "nodes that are left out")
        noticed = time.time()
        found = ask(self.fleet.front, FIRST_DOWNLOAD, 50, 50, "get", path)
        if {(r.result, r.bytes) for r in found} != {("200", size)}:
            fail(f"from the cache: {collections.Counter(r.result for r in found)}")
        status = self.fleet.request("GET", package("9.9.9"))
        if status != 503:
            fail(f"a package that is not in the cache: {status}")
        tell("50 whole downloads from the cache; for one that it has not: 503")
        version, started_after = self.update("1.0.0")
        if version != "1.0.0" or started_after > UPDATER_SECONDS:
            fail(f"the updater started its client after {started_after:.1f} s, as {version}")
        tell(f"the updater started its client, unchanged, after {started_after:.1f} s")
        alerts = self.monitoring.wait_for(began, *ALL_DOWN_ALERTS)
        time.sleep(max(0.0, down + SIZES.seconds_down - time.time()))
        back = time.time()
        for node in self.fleet.nodes:
            node.start()
            self.wait_for_node(node, True)
        load.settle()
        checks = [r for r in load.requests(down) if r.is_check and r.end < back]
        answers = collections.Counter(r.result for r in checks)
        tell(f"{len(checks):,} checks: {dict(answers)}")
        first = max((r.seconds for r in checks if r.start < noticed), default=0)
        later = max((r.seconds for r in checks if r.start >= noticed), default=0)
        if set(answers) != {"503"} or max(first, later) > UPDATER_SECONDS / 2:
            fail(f"checks that hang or do not fail: {answers}, {first:.1f} s, {later:.1f} s")
        self.row(f"All nodes are down for {SIZES.seconds_down} s",
                 f"50 of 50 downloads came from the cache; {len(checks):,} checks were 503 within "
                 f"{later:.2f} s, in the first {noticed - down:.1f} s within {first:.2f} s; the "
                 f"updater started its client after {started_after:.1f} s", alerts)

    def download_at_once(self) -> None:
        """(f) Many clients download a new package at the same time."""
        say(f"{SIZES.downloads:,} clients request one new package at the same time")
        self.make_release("2.3.0")
        self.push()
        path, size = package("2.3.0"), (SITE / package("2.3.0")[1:]).stat().st_size
        began = time.time()
        found = ask(self.fleet.front, FIRST_DOWNLOAD, SIZES.downloads, SIZES.downloads, "get", path)
        if {(r.result, r.bytes) for r in found} != {("200", size)}:
            fail(f"{collections.Counter(r.result for r in found)}")
        seconds = max(r.end for r in found) - min(r.start for r in found)
        self.figures["package_bytes_per_second"] = size * len(found) / seconds
        times, sent = map(sum, zip(*(node.bytes_of(path) for node in self.fleet.nodes)))
        tell(f"{size * len(found) / 1e6:,.0f} MB in {seconds:.1f} s")
        if times != 1:
            fail(f"the nodes were asked {times} times")
        wait_until(lambda: len(self.fleet.package_lines("completed", path)) >= len(found),
                   "the lines of the downloads")
        if self.fleet.package_lines("interrupted", path):
            fail("whole downloads are logged as interrupted ones")
        self.row(f"{SIZES.downloads:,} clients request one new package",
                 f"the nodes sent it once: {sent:,} bytes of {size * len(found):,}",
                 self.monitoring.told_since(began))

    def withdraw(self) -> None:
        """A package is withdrawn for good."""
        say("A withdrawn package is purged from the cache")
        path = package("2.3.0")
        for tree in (SITE, *(node.tree for node in self.fleet.nodes)):
            (tree / path[1:]).rename(tree.parent / f"{tree.name}-withdrawn.zip")
        by_client = self.fleet.request("PURGE", path)
        before = self.fleet.request("GET", path)
        purged = self.fleet.request("PURGE", path, self.fleet.purge)
        after = self.fleet.request("GET", path)
        if (by_client, before, purged, after) != (405, 200, 200, 404):
            fail(f"purging: {by_client} {before} {purged} {after}")
        self.row("A withdrawn package is purged",
                 "still 200 before, 404 from then on; a client that asks to purge gets 405")

    def installed(self, room: Path, root: str, suffix: str, package_url: str, version: str) -> Path:
        """Creates a client of this version with the updater; returns the client's folder."""
        shutil.rmtree(room, ignore_errors=True)
        client = room / "installed"
        (client / "~version").mkdir(parents=True)
        (client / "AutoUpdate").mkdir()
        built = PROJECT / ("build/windows" if suffix else "build/native")
        shutil.copy(built / f"tests/standin{suffix}", client / "Client.exe")
        shutil.copy(built / f"AutoUpdate{suffix}", client / "AutoUpdate")
        (client / "~version/version.json").write_text(json.dumps({"client": {"version": version}}))
        (client / "AutoUpdate/updateconfig.json").write_text(json.dumps({
            "appConfigFile": "~version/version.json", "appName": "Client.exe",
            "appPath": f"{root}{client}/", "currentVersion": version, "noRemind": 0,
            "noRemindVersion": "", "updateCheckUrl": f"https://localhost:{self.fleet.front}/check",
            "updatePackageUrl": f"{package_url}/packages/"}, indent=4) + "\n")
        return client

    def update(self, version: str, windows: bool = False) -> tuple:
        """Runs the real updater; returns the client's version afterwards, and after how long it was started."""
        room = WORK / ("updater-windows" if windows else "updater")
        if windows:
            client = self.installed(room, "Z:", ".exe", f"https://localhost:{self.fleet.front}", version)
            environment = dict(os.environ)
            # A prefix that is kept, because programs that the updater has started end with a temporary one.
            wine = [PROJECT / "scripts/wine-run", "--prefix", room / "prefix", "--timeout", "240",
                    "--command", PROJECT / "build/windows/tests/tasklist.exe"]
            subprocess.run([*wine, "cmd", "/c", "ver"], capture_output=True, check=True, timeout=300)
            user = pwd.getpwuid(os.getuid()).pw_name
            (room / "prefix/drive_c/users" / user / "AppData/Roaming/norvaneAssistant").mkdir(
                parents=True, exist_ok=True)
            command = [*wine, "--trust", self.fleet.certificate, client / "AutoUpdate/AutoUpdate.exe"]
        else:
            client = self.installed(room, "", "", f"http://localhost:{self.fleet.plain}", version)
            home = room / "home"
            (home / "AppData/Roaming/norvaneAssistant").mkdir(parents=True)
            (home / "tmp").mkdir(mode=0o700)
            environment = {**os.environ, "HOME": str(home), "TMPDIR": str(home / "tmp"),
                           "PATH": f"{PROJECT}/hosttools:{os.environ['PATH']}",
                           "QT_QPA_PLATFORM": "offscreen", "LC_ALL": "C.UTF-8"}
            command = [client / "AutoUpdate/AutoUpdate"]
        began = time.time()
        calls = client / "Client.exe.calls"
        try:
            with (room / "output.txt").open("w") as output:
                done = subprocess.run([*command, "-immediately"], env=environment, check=False,
                                      stdout=output, stderr=output, timeout=300)
            if done.returncode != 0:
                fail(f"the updater ended with {done.returncode}: {(room / 'output.txt').read_text()}")
            wait_until(calls.exists, "the start of the client")
        finally:
            if windows:
                subprocess.run(["/usr/lib/wine/wineserver64", "-k"], check=False,
                               env={**os.environ, "WINEPREFIX": str(room / "prefix")})
        now = json.loads((client / "~version/version.json").read_text())["client"]["version"]
        return now, calls.stat().st_mtime - began

    def install(self, windows: bool) -> None:
        """(g) The real updater runs while nodes restart."""
        kind = "The Windows updater, under Wine," if windows else "The native updater"
        say(f"{kind} installs a release while nodes restart")
        began = time.time()
        is_over = threading.Event()
        restarts = []

        def restart() -> None:
            while not (is_over.is_set() and restarts):
                node = self.fleet.nodes[len(restarts) % 3]
                node.restart()
                self.wait_for_node(node, True)
                restarts.append(node)

        # From the nodes, not from the cache.
        self.fleet.request("PURGE", package("2.2.0"), self.fleet.purge)
        thread = threading.Thread(target=restart)
        thread.start()
        try:
            version, seconds = self.update("1.0.0", windows)
        finally:
            is_over.set()
            thread.join()
        if version != "2.2.0":
            fail(f"the updater made {version} of 1.0.0")
        self.row(f"{kind} installs a release",
                 f"the client is 2.2.0 and was started after {seconds:.1f} s; "
                 f"{len(restarts)} restarts of a node meanwhile", self.monitoring.told_since(began))

    def run(self) -> None:
        """All steps."""
        say("Three nodes, HAProxy, Varnish and Prometheus start")
        self.make_release("2.1.0", "--share", "10")
        self.push()
        self.fleet.start()
        tell(f"in front: https://localhost:{self.fleet.front}")
        self.share()
        with Load(self.fleet) as load:
            self.monitoring.start()
            steps = [lambda: self.kill_one(load), lambda: self.restart_all(load),
                     lambda: self.push_under_load(load), lambda: self.stop(load),
                     lambda: self.all_down(load), self.download_at_once, self.withdraw,
                     lambda: self.install(False)]
            if OPTIONS.windows:
                steps.append(lambda: self.install(True))
            for step in steps:
                self.monitoring.settle()
                step()
        if not OPTIONS.windows:
            self.row("The Windows updater, under Wine, installs a release",
                     "not run: QT_WINDOWS_ARCHIVE has to name a Qt for Windows, without --small")

    def print_table(self) -> None:
        """Prints the table, and writes the figures."""
        say("What was proven")
        print("| Step | What was seen | Alert that fired |\n|---|---|---|")
        for cells in self.rows:
            print(f"| {' | '.join(cell or '–' for cell in cells)} |")
        file = WORK / "figures.json"
        file.write_text(json.dumps(self.figures, indent=4) + "\n")
        print(f"\n{file}:\n{file.read_text()}", end="")


def main() -> None:
    """Starts the fleet, takes it through all steps, and ends it."""
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    shutil.rmtree(WORK, ignore_errors=True)
    WORK.mkdir(parents=True)
    began = time.monotonic()
    fleet = Fleet(PROJECT, WORK)
    with contextlib.ExitStack() as stack:
        stack.callback(fleet.end)
        proof = Proof(fleet, Monitoring(fleet))
        try:
            proof.run()
        except (RuntimeError, TimeoutError, subprocess.SubprocessError) as error:
            fail(str(error))
        except KeyboardInterrupt:
            fail("interrupted")
        proof.print_table()
    print(f"\nAll of it took {time.monotonic() - began:.0f} s.")


if __name__ == "__main__":
    main()
