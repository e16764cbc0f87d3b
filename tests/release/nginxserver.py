# SPDX-License-Identifier: MIT
"""nginx, started by scripts/serve on a free port, and requests to it."""

import http.client
import json
import signal
import socket
import ssl
import subprocess
from pathlib import Path

from waiting import free_port, wait_until

PATIENCE_SECONDS = 60


class Answer:
    """The answer to a request."""

    def __init__(self, response: http.client.HTTPResponse):
        self.status = response.status
        self.headers = response.headers
        self.body = response.read()


class NginxServer:
    """A running scripts/serve, which ends with the with-block. ROOM is an empty folder."""

    def __init__(self, serve: str, tree: Path, room: Path, *options: str, **replaced: str):
        """OPTIONS are additional options of scripts/serve.

        REPLACED gives files of release/nginx/updates/ another text, as clients="...".
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
        """Whether nginx accepts connections or has ended."""
        if self.process.poll() is not None:
            return True
        # nginx writes the file when it has its ports.
        file = self.work / "nginx.pid"
        return file.exists() and file.read_text().strip() == str(self.process.pid)

    def connection(self, source: str = "127.0.0.1") -> http.client.HTTPSConnection:
        """A connection that checks the certificate, from any address of 127.0.0.0/8."""
        return http.client.HTTPSConnection(
            "127.0.0.1",
            self.port,
            context=self.tls,
            timeout=PATIENCE_SECONDS,
            source_address=(source, 0),
        )

    def request(self, method: str, path: str, source: str = "127.0.0.1", **more) -> Answer:
        """The answer to a request on a new connection."""
        connection = self.connection(source)
        try:
            connection.request(method, path, **more)
            return Answer(connection.getresponse())
        finally:
            connection.close()

    def ask(
        self, body: bytes, source: str = "127.0.0.1", path: str = "/check", forwarded: str = ""
    ) -> Answer:
        """The answer to a check. FORWARDED is the client's address from a load balancer."""
        headers = {**CHECK_HEADERS, **({"X-Forwarded-For": forwarded} if forwarded else {})}
        return self.request("POST", path, source, body=body, headers=headers)

    def check(self, version: str, *arguments: str, **more: str) -> str:
        """The decision() for a client of this version."""
        return decision(self.ask(check_body(version), *arguments, **more))

    def tls_socket(self) -> ssl.SSLSocket:
        """A TLS connection for raw bytes."""
        plain = socket.create_connection(("127.0.0.1", self.port), PATIENCE_SECONDS)
        return self.tls.wrap_socket(plain, server_hostname="localhost")

    def raw(self, *pieces: bytes) -> Answer:
        """The answer to raw bytes. Each piece after the first waits for an interim answer."""
        with self.tls_socket() as connection:
            connection.sendall(pieces[0])
            for piece in pieces[1:]:
                connection.recv(65536)
                connection.sendall(piece)
            response = http.client.HTTPResponse(connection)
            response.begin()
            return Answer(response)

    def errors(self) -> str:
        """The last errors in the log of nginx."""
        return (self.work / "error.log").read_text()[-2000:]

    def log_lines(self, count: int) -> list:
        """Waits for COUNT lines of the access log and returns them parsed."""
        log = self.work / "updates.log"
        wait_until(lambda: log.read_bytes().count(b"\n") >= count, f"{count} lines in the log")
        return [json.loads(line) for line in log.read_bytes().splitlines()[:count]]


CHECK_HEADERS = {
    "X-Request-From": "internal",
    "content-type": "application/json;charset=UTF-8",
}


def check_body(version: str) -> bytes:
    """The body of a check, byte for byte."""
    keys = {"clientVersion": version, "deviceType": "Windows", "platform": 6}
    return json.dumps(keys, separators=(",", ":"), ensure_ascii=False).encode()


def decision(answer: Answer) -> str:
    """The version that an answer offers, or "none"; the status of other answers."""
    if answer.status != http.HTTPStatus.OK:
        return str(answer.status)
    biz = json.loads(answer.body)["biz"]
    return {"0": "none", "1": biz.get("latestVersion")}[biz["update"]]
