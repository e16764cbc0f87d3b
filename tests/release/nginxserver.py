"""A real nginx, started by scripts/serve on a port of its own, and bare requests to it."""

import contextlib
import http.client
import json
import random
import signal
import socket
import ssl
import subprocess
import time
from pathlib import Path

PATIENCE_SECONDS = 60

OFFER = {
    "code": "000000",
    "desc": "success",
    "biz": {
        "id": "NorvaneClient-2.1.3.zip",
        "update": "1",
        "latestVersion": "2.1.3",
        "latestVersionUrl": "https://updates.example.com/packages/NorvaneClient-2.1.3.zip",
        "latestVersionInfo": "中文说明&English notes",
        "md5": "0cc175b9c0f1b6a831c399e269772661",
        "sha1": "",
        "packageSize": 300000,
        "updateType": 1,
    },
}
NONE = {"code": "000000", "desc": "success", "biz": {"update": "0"}}
PACKAGE = "NorvaneClient-2.1.3.zip"


def make_tree(tree: Path) -> bytes:
    """A release tree as publish makes it; returns the package's bytes."""
    (tree / "check").mkdir(parents=True)
    (tree / "packages").mkdir()
    for name, answer in (("offer", OFFER), ("none", NONE)):
        text = json.dumps(answer, ensure_ascii=False, indent=4) + "\n"
        (tree / "check" / f"{name}.json").write_text(text, encoding="utf-8")
    package = bytes(i * 7 % 251 for i in range(300_000))
    (tree / "packages" / PACKAGE).write_bytes(package)
    return package


def wait_until(condition, what: str) -> None:
    """Returns once the condition holds; fails with what was awaited when that takes too long."""
    deadline = time.monotonic() + PATIENCE_SECONDS
    while not condition():
        if time.monotonic() > deadline:
            raise TimeoutError(f"never came: {what}")
        time.sleep(0.02)


def free_port() -> int:
    """A port of the loopback that nobody has, below those that the system gives to connections."""
    while True:
        port = random.randrange(20_000, 30_000)
        with socket.socket() as probe, contextlib.suppress(OSError):
            probe.bind(("127.0.0.1", port))
            return port


class Answer:
    """What came back for one request."""

    def __init__(self, response: http.client.HTTPResponse):
        self.status = response.status
        self.headers = response.headers
        self.body = response.read()


class NginxServer:
    """scripts/serve at work; ends with the with-block. ROOM is an empty folder of the test."""

    def __init__(self, serve: str, tree: Path, room: Path, *options: str, **replaced: str):
        """OPTIONS are further ones of scripts/serve.

        REPLACED gives files of release/nginx/updates/ another text, as rollout="...".
        """
        self.serve = serve
        self.options = options
        self.tree = tree
        self.work = room / "work"
        self.replacements = room / "replacements"
        self.replacements.mkdir(parents=True)
        for name, text in replaced.items():
            (self.replacements / f"{name}.conf").write_text(text)
        self.port = free_port()
        self.output = room / "serve.txt"
        self.process = None
        self.tls = ssl.create_default_context()

    def __enter__(self) -> "NginxServer":
        command = [self.serve, self.tree, "--port", str(self.port), "--work", self.work]
        command += self.options
        command += ["--replace", self.replacements] if any(self.replacements.iterdir()) else []
        with self.output.open("w") as output:
            self.process = subprocess.Popen(command, stdout=output, stderr=output)
        wait_until(self.listens_or_ended, "nginx")
        if self.process.poll() is not None:
            raise RuntimeError(self.output.read_text())
        self.tls.load_verify_locations(self.work / "certificate.pem")
        return self

    def __exit__(self, *_) -> None:
        self.process.send_signal(signal.SIGTERM)
        self.process.wait(PATIENCE_SECONDS)

    def listens_or_ended(self) -> bool:
        """True once a request can be made, or never will be."""
        if self.process.poll() is not None:
            return True
        # nginx writes the file when it has its ports.
        file = self.work / "nginx.pid"
        return file.exists() and file.read_text().strip() == str(self.process.pid)

    def connection(self, source: str = "127.0.0.1") -> http.client.HTTPSConnection:
        """A connection with the certificate checked, from any address of 127.0.0.0/8."""
        return http.client.HTTPSConnection(
            "127.0.0.1",
            self.port,
            context=self.tls,
            timeout=PATIENCE_SECONDS,
            source_address=(source, 0),
        )

    def request(self, method: str, path: str, source: str = "127.0.0.1", **more) -> Answer:
        """One request over a connection of its own."""
        connection = self.connection(source)
        try:
            connection.request(method, path, **more)
            return Answer(connection.getresponse())
        finally:
            connection.close()

    def check(self, version: str, source: str = "127.0.0.1") -> str:
        """The check beside a client of this version: "offer", "none" or the status."""
        body = check_body(version)
        answer = self.request("POST", "/check", source, body=body, headers=CHECK_HEADERS)
        if answer.status != http.HTTPStatus.OK:
            return str(answer.status)
        return {"0": "none", "1": "offer"}[json.loads(answer.body)["biz"]["update"]]

    def tls_socket(self) -> ssl.SSLSocket:
        """A connection to send bare bytes through."""
        plain = socket.create_connection(("127.0.0.1", self.port), PATIENCE_SECONDS)
        return self.tls.wrap_socket(plain, server_hostname="localhost")

    def raw(self, *pieces: bytes) -> Answer:
        """What comes back; each piece after the first is sent when the server asks for it."""
        with self.tls_socket() as connection:
            connection.sendall(pieces[0])
            for piece in pieces[1:]:
                connection.recv(65536)
                connection.sendall(piece)
            response = http.client.HTTPResponse(connection)
            response.begin()
            return Answer(response)

    def workers(self) -> set:
        """The processes that answer requests."""
        command = ["pgrep", "-P", str(self.process.pid)]
        return set(subprocess.run(command, capture_output=True, check=True).stdout.split())

    def reload(self, rollout: str) -> None:
        """An edit of rollout.conf and the reload, until nobody answers by the old text."""
        former = self.workers()
        (self.work / "updates" / "rollout.conf").write_text(rollout)
        self.process.send_signal(signal.SIGHUP)
        wait_until(lambda: self.workers().isdisjoint(former), "the reload")

    def log_lines(self, count: int) -> list:
        """The first COUNT lines of the access log, parsed, once they are there."""
        log = self.work / "updates.log"
        wait_until(lambda: log.read_bytes().count(b"\n") >= count, f"{count} lines in the log")
        return [json.loads(line) for line in log.read_bytes().splitlines()[:count]]


CHECK_HEADERS = {
    "X-Request-From": "internal",
    "content-type": "application/json;charset=UTF-8",
}


def check_body(version: str) -> bytes:
    """What an updater asks, byte for byte."""
    keys = {"clientVersion": version, "deviceType": "Windows", "platform": 6}
    return json.dumps(keys, separators=(",", ":"), ensure_ascii=False).encode()
