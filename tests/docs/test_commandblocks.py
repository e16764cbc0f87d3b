#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The commands that the documents print, run as they stand and in their order, and what they print.

The server is this machine: its folders lie below a temporary root, and its name leads to the loopback.
"""

import json
import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

TOOL = Path()
PROJECT = Path(__file__).resolve().parents[2]
TIME_LIMIT = 60  # seconds, for what takes a tenth of one

# A fence with "sh root" is for a server, as root. Indented lines after a fence are what its commands print.
BLOCK = re.compile(r"^```sh(?: root)?\n(.*?)^```$(?:\n\n((?:^    [^\n]*\n)+))?", re.DOTALL | re.MULTILINE)
MOMENT = re.compile(r"\d{4}-\d\d-\d\d(T\d\d:\d\d:\d\dZ)?")

# What needs root, systemd or a second machine.
STAND_INS = {
    "apt-get": '[ "$1" = install ]',
    "adduser": ":",
    "install": """for argument; do
    shift
    case $argument in -o | -g) drop=1 ;; *) [ -n "$drop" ] || set -- "$@" "$argument"; drop= ;; esac
done
exec /usr/bin/install "$@" """,
    "nginx": 'exec /usr/sbin/nginx -e ROOT/var/log/nginx/error.log -c ROOT/etc/nginx/nginx.conf "$@"',
    "ssh": '[ "$1" = -l ] && shift 2; shift; exec sh -c "$*"',
    # systemd reads the units, with all that they name; it prints something only when it is not content.
    "systemctl": """verify() {
    for unit; do
        case $unit in *.*) ;; *) unit=$unit.service ;; esac
        found=$(SYSTEMD_UNIT_PATH=ROOT/etc/systemd/system: systemd-analyze verify --man=no "$unit" 2>&1) &&
            [ -z "$found" ] || { echo "$found" >&2; exit 1; }
    done
}
case $1 in
    restart) case $2 in nginx) nginx ;; *) shift; verify "$@" ;; esac ;;
    reload) nginx -s reload ;;
    daemon-reload) ;;
    enable) shift 2; verify "$@" ;;
    *) exit 1 ;;
esac""",
}


def free_ports() -> list:
    """Two ports of the loopback."""
    with socket.socket() as one, socket.socket() as other:
        one.bind(("127.0.0.1", 0))
        other.bind(("127.0.0.1", 0))
        return [one.getsockname()[1], other.getsockname()[1]]


def masked(text: str) -> str:
    """Without dates and times, and without the indentation."""
    return "\n".join(MOMENT.sub("DATE", line).strip() for line in text.splitlines())


class CommandBlocks(unittest.TestCase):
    """A reader with one folder, who copies block after block."""

    def setUp(self) -> None:
        self.room = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.root = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.port, self.inner_port = free_ports()
        for folder in ("etc/nginx/conf.d", "etc/nginx/sites-enabled", "etc/systemd/system", "etc/cron.d",
                       "etc/haproxy", "etc/varnish", "etc/logrotate.d", "etc/ssl/certs",
                       "usr/local/bin", "var/log/nginx", "run", "bin"):
            (self.root / folder).mkdir(parents=True)
        shutil.copy("/etc/ssl/certs/ca-certificates.crt", self.root / "etc/ssl/certs")
        for name, commands in STAND_INS.items():
            program = self.root / "bin" / name
            program.write_text(f"#!/bin/sh\n{commands}\n".replace("ROOT", str(self.root)))
            program.chmod(0o755)
        self.install_nginx()
        for folder in ("etc/default", "etc/mtail", "etc/prometheus"):
            (self.root / folder).mkdir()
        (self.room / "build/native").mkdir(parents=True)
        (self.room / "build/native/publish").symlink_to(TOOL)
        shutil.copytree(PROJECT / "release", self.room / "release", copy_function=self.copy_moved)
        subprocess.run(
            "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 30 -subj /CN=updates"
            " -addext subjectAltName=DNS:updates.example.com -keyout key.pem -out certificate.pem".split(),
            cwd=self.room, check=True, capture_output=True, timeout=TIME_LIMIT,
        )
        (self.root / ".curlrc").write_text(
            f"fail\nconnect-to = updates.example.com:443:127.0.0.1:{self.port}\ncacert = {self.room}/certificate.pem\n"
        )
        path = f"{self.root}/bin:{TOOL.parent}:{os.environ['PATH']}:/usr/sbin"
        self.environment = {**os.environ, "PATH": path, "CURL_HOME": str(self.root)}
        self.addCleanup(self.end_nginx)

    def install_nginx(self) -> None:
        """As Debian does, with a user that may read the temporary folders."""
        user = "user root;" if os.getuid() == 0 else ""
        text = self.moved(Path("/etc/nginx/nginx.conf").read_text()).replace("user www-data;", user)
        for use in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"):
            text = text.replace("http {", f"http {{ {use}_temp_path {self.root}/run/{use};", 1)
        (self.root / "etc/nginx/nginx.conf").write_text(text)
        shutil.copy("/etc/nginx/mime.types", self.root / "etc/nginx")
        (self.root / "etc/nginx/sites-enabled/default").write_text("the sample site;")

    def end_nginx(self) -> None:
        pid_file = self.root / "run/nginx.pid"
        if pid_file.exists():
            self.run_block("nginx -s stop")
            self.wait_until(lambda: not pid_file.exists())

    def wait_until(self, condition) -> None:
        deadline = time.monotonic() + TIME_LIMIT
        while not condition():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.02)

    def moved(self, text: str) -> str:
        """With the places, ports and networks of this test."""
        text = re.sub(r"(?<![\w.])/(?=(etc|srv|usr/local|var/log|run)/)", f"{self.root}/", text)
        text = text.replace("listen 443 ", f"listen 127.0.0.1:{self.port} ").replace(":8079", f":{self.inner_port}")
        return text.replace("192.0.2.0/24", "127.0.0.0/8")

    def copy_moved(self, source: str, target: str) -> None:
        Path(target).write_text(self.moved(Path(source).read_text(encoding="utf-8")), encoding="utf-8")

    def run_block(self, block: str) -> str:
        """What it prints, run in a shell of its own; every command in it has to succeed."""
        done = subprocess.run(
            ["bash", "-euo", "pipefail", "-c", block], cwd=self.room, env=self.environment,
            capture_output=True, text=True, check=False, timeout=TIME_LIMIT,
        )
        self.assertEqual(done.returncode, 0, f"{block}\n{done.stdout}{done.stderr}")
        return done.stdout

    def run_scheduled(self) -> None:
        """The command lines of the timer's service and of the cron entry, each by the program that reads it."""
        service = (self.root / "etc/systemd/system/publish-advance.service").read_text()
        started = re.search("^ExecStart=(.*)$", service, re.MULTILINE)[1]
        self.assertIn("stays at 10 %", self.run_block(started))
        entry = (self.root / "etc/cron.d/publish-advance").read_text().splitlines()[-1]
        fields = entry.split(None, 6)
        self.assertEqual(fields[:6], ["30", "*", "*", "*", "*", "releases"])
        self.assertEqual(self.run_block(fields[6]), "")
        # What it prints when there is something to tell someone: the log is not there.
        log = self.root / "var/log/nginx/updates.log"
        away = log.rename(log.with_name("away"))
        with self.assertRaisesRegex(AssertionError, "log"):
            self.run_block(fields[6])
        away.rename(log)

    def be_offered_the_release(self, blocks: list) -> None:
        """Copies the tree and asks, as clients do between the steps of a plan."""
        for block, _ in blocks:
            if block.startswith(("publish push", "curl")):
                self.run_block(block)
        log = self.root / "var/log/nginx/updates.log"
        self.wait_until(lambda: '"answer":"2.2.0"' in log.read_text())

    def test_every_block_runs_and_prints_what_the_document_shows(self) -> None:
        for document in ("packages.md", "service.md"):
            text = self.moved((PROJECT / "docs" / document).read_text(encoding="utf-8"))
            blocks = BLOCK.findall(text)
            self.assertGreater(len(blocks), 3)
            self.assertEqual(len(blocks), text.count("\n```sh"))
            for block, shown in blocks:
                if "publish advance" in block:
                    self.be_offered_the_release(blocks)
                printed = self.run_block(block)
                self.assertIn(masked(shown), masked(printed), block)
                if "publish-advance.cron" in block:
                    self.run_scheduled()
                if block.startswith("curl"):
                    self.assertIn("with 2.1.3 is offered nothing, one with 2.0.1 is offered 2.1.3:", text)
                    answers = [json.loads(line)["biz"] for line in printed.splitlines()]
                    self.assertEqual([answer["update"] for answer in answers], ["0", "1"])
                    self.assertEqual(answers[1]["latestVersion"], "2.1.3")
        self.assertIn("worker_connections 16384;", (self.root / "etc/nginx/nginx.conf").read_text())
        self.assertIn("\nworker_rlimit_nofile 65536;", (self.root / "etc/nginx/nginx.conf").read_text())


if __name__ == "__main__":
    TOOL = Path(sys.argv.pop(1)).resolve()
    unittest.main()
