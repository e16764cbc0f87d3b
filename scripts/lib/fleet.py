# SPDX-License-Identifier: MIT
"""The fleet of release/fleet/ on the loopback: nodes, load balancer, cache and monitoring.

Everything runs with the shipped files, in which only the values marked "here" are replaced. Everything that it
writes is below one folder, and everything that it starts ends together with it.
"""

import http.client
import json
import os
import re
import signal
import socket
import subprocess
import time
import urllib.request
from pathlib import Path

PATIENCE_SECONDS = 60
BALANCER_ADDRESS = "127.0.0.2"
MONITOR_ADDRESS = "127.0.0.1"
NAMES = ("updates.example.com", "localhost")
# The cache logs downloads in two files.
LOGGED = ("completed", "interrupted")
# A machine's limit on open files may be 20,000; a connection takes two.
BALANCER_CONNECTIONS = 8000


def wait_until(condition, what, seconds: float = PATIENCE_SECONDS) -> None:
    """Returns once the condition holds. WHAT describes it, for the error: a text, or a function that returns one."""
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            raise TimeoutError(f"never came: {what() if callable(what) else what}")
        time.sleep(0.05)


class Ports:
    """Free ports of the loopback, below those that the system assigns to connections."""

    def __init__(self):
        self.given = set()

    def take(self) -> int:
        """A port that was not taken yet; the next one is free as well."""
        for port in range(20_000 + os.getpid() % 500 * 19, 32_000, 2):
            if port not in self.given and is_free(port) and is_free(port + 1):
                self.given.add(port)
                return port
        raise RuntimeError("no port of the loopback is free")


def is_free(port: int) -> bool:
    """Whether no program listens on this port."""
    with socket.socket() as probe:
        try:
            probe.bind(("127.0.0.1", port))
        except OSError:
            return False
    return True


def answers(port: int) -> bool:
    """Whether a program accepts connections on this port."""
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


def changed(text: str, *pairs: tuple) -> str:
    """The text with the first part of each pair replaced by the second; the first must occur."""
    for old, new in pairs:
        if old not in text:
            raise ValueError(f"no longer said: {old}")
        text = text.replace(old, str(new))
    return text


class Program:
    """A server that runs until end(); its output goes to the file OUTPUT."""

    def __init__(self, output: Path, *command: object):
        self.output = output
        with output.open("a") as log:
            # In its own process group: Ctrl-C goes to prove-fleet only, which then ends the programs in order.
            self.process = subprocess.Popen(
                [str(word) for word in command], stdout=log, stderr=log,
                stdin=subprocess.DEVNULL, start_new_session=True)

    def runs(self) -> bool:
        """False once it has ended."""
        return self.process.poll() is None

    def wait_for(self, condition, what: str) -> None:
        """Waits for it to be ready; fails with its output when it ends before that."""
        wait_until(lambda: not self.runs() or condition(), what)
        if not self.runs():
            raise RuntimeError(f"{what} has ended: {self.output.read_text()[-2000:]}")

    def send(self, number: int) -> None:
        """Sends a signal to this process, not to its children."""
        self.process.send_signal(number)

    def kill(self) -> None:
        """Kills it and all its children at once."""
        os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()

    def end(self) -> None:
        """Ends it in order; kills it if it does not end within ten seconds."""
        if self.runs():
            self.send(signal.SIGTERM)
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            pass
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.process.wait()


class Node:
    """nginx with release/nginx/ and a tree of its own, which trusts the load balancer."""

    def __init__(self, fleet: "Fleet", number: int):
        self.fleet = fleet
        self.name = f"node{number}"
        self.tree = fleet.work / self.name / "updates"
        self.work = fleet.work / self.name / "service"
        self.log = self.work / "updates.log"
        self.port = fleet.ports.take()
        self.program = None

    def start(self) -> None:
        """Returns once it has its ports."""
        project, work = self.fleet.project, self.work
        self.program = Program(
            self.tree.parent / "service.txt", project / "scripts/serve", self.tree, "--port", self.port,
            "--work", work, "--replace", self.fleet.replacements,
            "--certificate", self.fleet.certificate, "--key", self.fleet.key)
        pid = work / "nginx.pid"
        self.program.wait_for(
            lambda: pid.exists() and pid.read_text().strip() == str(self.program.process.pid), self.name)

    def restart(self) -> None:
        """Restarts it as an operator does: requests in progress are finished."""
        self.program.send(signal.SIGQUIT)
        self.program.process.wait(PATIENCE_SECONDS)
        self.start()

    def bytes_of(self, path: str) -> tuple:
        """How often this path was sent according to the log, and how many bytes in all."""
        lines = [json.loads(line) for line in self.log.read_text().splitlines() if path in line]
        sent = [line["bytes"] for line in lines if line["path"] == path]
        return len(sent), sum(sent)


class Fleet:
    """Three nodes, HAProxy and Varnish."""

    def __init__(self, project: Path, work: Path):
        self.project = project
        self.work = work
        self.ports = Ports()
        self.front, self.plain = self.ports.take(), self.ports.take()
        self.cache, self.purge, self.metrics = (self.ports.take() for _ in range(3))
        self.tunnels = [self.ports.take() for _ in range(3)]
        self.certificate, self.key = work / "certificate.pem", work / "key.pem"
        self.replacements = work / "replacements"
        self.nodes = [Node(self, number) for number in (1, 2, 3)]
        self.programs = []

    def shipped(self, name: str) -> str:
        """The text of a file of release/."""
        return (self.project / "release" / name).read_text(encoding="utf-8")

    def start(self) -> None:
        """Starts everything, and returns once it answers."""
        self.make_certificate()
        self.replacements.mkdir(parents=True)
        (self.replacements / "clients.conf").write_text(changed(
            self.shipped("nginx/updates/clients.conf"),
            ("#     set_real_ip_from 192.0.2.0/24;",
             f"set_real_ip_from {BALANCER_ADDRESS};\nset_real_ip_from {MONITOR_ADDRESS};"),
            ("#     real_ip_", "real_ip_")))
        for node in self.nodes:
            node.start()
        self.start_cache()
        self.start_balancer()
        wait_until(lambda: len(self.healthy()) == 3 and self.status("packages", "cache") == "UP",
                   "a healthy fleet")

    def make_certificate(self) -> None:
        """One certificate for all. The load balancer checks the nodes' name in it."""
        names = ",".join(f"DNS:{name}" for name in NAMES)
        subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
             "-nodes", "-days", "30", "-subj", f"/CN={NAMES[0]}",
             "-addext", f"subjectAltName={names},IP:127.0.0.1",
             "-keyout", self.key, "-out", self.certificate], check=True, capture_output=True)
        pair = self.work / "updates.pem"
        pair.touch(0o600)
        pair.write_text(self.certificate.read_text() + self.key.read_text())

    def start_balancer(self) -> None:
        """HAProxy, which also has a port without TLS for the native updater to download from."""
        text = changed(
            self.shipped("fleet/haproxy.cfg"),
            ("log /dev/log local0", "log stdout format raw local0"),
            ("    user haproxy\n    group haproxy\n    chroot /var/lib/haproxy\n", ""),
            ("maxconn 40000", f"maxconn {BALANCER_CONNECTIONS}"),
            ("bind :443 ssl crt /etc/haproxy/updates.pem",
             f"bind 127.0.0.1:{self.plain}\n"
             f"    bind 127.0.0.1:{self.front} ssl crt {self.work}/updates.pem"),
            ("/etc/ssl/certs/ca-certificates.crt", self.certificate),
            ("source 192.0.2.11", f"source {BALANCER_ADDRESS}"),
            ("127.0.0.1:6081", f"127.0.0.1:{self.cache}"),
            ("127.0.0.1:8405", f"127.0.0.1:{self.metrics}"),
            *((f"192.0.2.2{number}:443", f"127.0.0.1:{node.port}")
              for number, node in enumerate(self.nodes, 1)),
            *((f"127.0.0.1:818{number}", f"127.0.0.1:{port}")
              for number, port in enumerate(self.tunnels, 1)))
        file = self.work / "haproxy.cfg"
        file.write_text(text)
        program = self.run("haproxy", "haproxy", "-db", "-f", file)
        program.wait_for(lambda: answers(self.front) and answers(self.metrics), "haproxy")

    def start_cache(self) -> None:
        """Varnish, with the command line of its systemd unit."""
        vcl = self.work / "updates.vcl"
        vcl.write_text(changed(
            self.shipped("fleet/varnish.vcl"),
            *((f'"818{number}"', f'"{port}"') for number, port in enumerate(self.tunnels, 1))))
        unit = self.shipped("fleet/varnish.service.d/updates.conf")
        command = re.sub(r"\\\n", " ", unit).rsplit("ExecStart=", 1)[1].split("\n")[0]
        command = changed(
            command,
            ("-j unix,user=vcache", f"-j none -n {self.work}/varnish"),
            ("/etc/varnish/updates.vcl", vcl),
            ("127.0.0.1:6081", f"127.0.0.1:{self.cache}"),
            ("127.0.0.1:6082", f"127.0.0.1:{self.purge}"),
            ("/var/lib/varnish/packages.bin,20G", f"{self.work}/packages.bin,256M"))
        program = self.run("varnish", *command.split())
        program.wait_for(lambda: answers(self.cache), "varnish")
        for kind in LOGGED:
            self.start_packages_log(kind)

    def start_packages_log(self, kind: str) -> None:
        """The log of what the cache sends, with the command line of its systemd unit."""
        unit = self.shipped("fleet/packages-log@.service")
        command = changed(
            unit.split("ExecStart=")[1].split("\n")[0].replace("%i", kind),
            ("/usr/bin/varnishncsa", f"env TZ=UTC varnishncsa -n {self.work}/varnish"),
            ("/var/log/varnish", self.work),
            ("/etc/varnish", self.project / "release/fleet"))
        self.run(f"packages-log-{kind}", *command.split())

    def packages_log(self, kind: str) -> Path:
        """The path of that log."""
        return self.work / f"packages-{kind}.log"

    def package_lines(self, kind: str, path: str) -> list:
        """The bytes of each download of the path in that log."""
        log = self.packages_log(kind)
        lines = map(json.loads, log.read_text().splitlines() if log.exists() else ())
        return [line["bytes"] for line in lines if line["path"] == path]

    def run(self, name: str, *command: object) -> Program:
        """Starts a program that ends together with the fleet."""
        program = Program(self.work / f"{name}.txt", *command)
        self.programs.append(program)
        return program

    def end(self) -> None:
        """Ends everything, the load balancer first."""
        for program in self.programs[::-1] + [node.program for node in self.nodes if node.program]:
            program.end()

    def statistics(self) -> str:
        """HAProxy's counters, as Prometheus reads them."""
        with urllib.request.urlopen(f"http://127.0.0.1:{self.metrics}/metrics", timeout=5) as answer:
            return answer.read().decode()

    def status(self, proxy: str, server: str) -> str:
        """The state of a server according to HAProxy: UP, DOWN, ..."""
        found = re.findall(rf'haproxy_server_status{{proxy="{proxy}",server="{server}",'
                           r'state="(\w+)"} 1', self.statistics())
        return found[0] if found else ""

    def healthy(self) -> set:
        """The nodes that HAProxy sends requests to."""
        return {node.name for node in self.nodes if self.status("nodes", node.name) == "UP"}

    def request(self, method: str, path: str, port: int = 0) -> int:
        """The status of one request without TLS, to the load balancer or to this port."""
        connection = http.client.HTTPConnection("127.0.0.1", port or self.plain, timeout=10)
        try:
            connection.request(method, path, headers={"Host": NAMES[0]})
            answer = connection.getresponse()
            answer.read()
            return answer.status
        finally:
            connection.close()
