#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""A web server that answers what a test tells it to, faults included.

It listens on two free ports of 127.0.0.1, one for HTTP and one for HTTPS. When both are open it
prints one line of JSON:

    {"http": PORT, "https": PORT, "certificate": "/path/of/certificate.pem"}

It ends at the end of its standard input or on SIGTERM; with --keep only on SIGTERM.

Control, on the HTTP port only:

    POST /_control/script    {"path": "/check", "steps": [STEP, ...]}
        Each request to the path uses up one step; the last step repeats. Queries are ignored.
    GET  /_control/requests  every request so far, in order of arrival
    GET  /_control/count     {"count": N}; ?path=/check counts that path only
    POST /_control/release   {"path": "/check"} releases the oldest held answer of the path and
        answers {"released": true}, or false when there is none
    POST /_control/reset     forgets scripts and requests, and aborts unfinished answers

STEP, with every member optional:

    status     200 unless given, 200 to 599
    reason     text of the status line
    headers    [[name, value], ...]; only Date and the framing headers are added
    body       text; or bodyBase64; or fill: N for N bytes of the pattern (i * 31 + 7) % 251;
               or file: PATH for the content of a file, which is not read into memory
    length     "exact" (the default), "none" (no Content-Length: the end of the connection ends
               the body, unless "chunked" is set) or a NUMBER to announce, right or wrong
    chunked    true for chunked transfer coding, which has no Content-Length
    sendBytes  N: stop after the first N bytes of the body
    hold       "before" (before anything is sent), "headers" (after the headers) or N (after N bytes
               of the body, or all of it): wait there for the release
    then       "keep" (the default), "close" (close the connection) or "reset" (RST), once the client
               has received everything

With "keep", a body shorter than announced leaves the client waiting: nothing more is sent until the
client hangs up or the server is reset.
"""

import argparse
import asyncio
import base64
import binascii
import fcntl
import json
import logging
import mmap
import os
import signal
import socket
import ssl
import struct
import subprocess
import sys
import tempfile
import termios
import threading
import time
import traceback
import weakref
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, Dict, Iterator, List, Optional, Tuple, Union

from aiohttp import web

CHUNK_BYTES = 64 * 1024
PATTERN_PERIOD = 251
PATTERN = bytes((i * 31 + 7) % PATTERN_PERIOD for i in range(PATTERN_PERIOD))
PATTERN_BLOCK = PATTERN * (CHUNK_BYTES // PATTERN_PERIOD + 2)
POLL_SECONDS = 0.01
FLUSH_SECONDS = 10.0
MAX_REQUEST_BYTES = 1024**3
IDLE_SECONDS = 3600.0
FRAMING_HEADERS = ("content-length", "transfer-encoding")


class ScriptError(ValueError):
    """An invalid control call; the test that sent it gets the message."""


def pattern(start: int, stop: int) -> bytes:
    """The bytes of the pattern from start to stop, at most one chunk."""
    offset = start % PATTERN_PERIOD
    return PATTERN_BLOCK[offset : offset + stop - start]


def is_count(value: Any) -> bool:
    """Whether a JSON value is a number of bytes; true does not count as 1."""
    return isinstance(value, int) and not isinstance(value, bool) and value >= 0


def require(condition: bool, message: str) -> None:
    """Reject an invalid script when it is set, so that the test gets the reason."""
    if not condition:
        raise ScriptError(message)


@dataclass(frozen=True)
class Step:
    """One checked answer of a script."""

    status: int
    reason: Optional[str]
    headers: List[Tuple[str, str]]
    content: Union[bytes, mmap.mmap]
    fill: Optional[int]
    length: Union[str, int]
    chunked: bool
    hold: Union[None, str, int]
    then: str
    send_bytes: Optional[int]

    @property
    def body_size(self) -> int:
        """The size of the whole body, sent or not."""
        return len(self.content) if self.fill is None else self.fill

    @property
    def sent_size(self) -> int:
        """The number of bytes of the body that are sent."""
        if self.send_bytes is None:
            return self.body_size
        return min(self.send_bytes, self.body_size)

    @property
    def announced_size(self) -> Optional[int]:
        """The value of Content-Length; None when the header is not sent."""
        if isinstance(self.length, int):
            return self.length
        if self.chunked or self.length == "none" or self.status in (204, 304):
            return None
        return self.body_size

    @property
    def delimited_by_close(self) -> bool:
        """Whether the body ends with the connection."""
        return not self.chunked and self.length == "none" and self.status not in (204, 304)

    def pieces(self, start: int, stop: int) -> Iterator[bytes]:
        """The body from start to stop in chunks, so that a large fill takes little memory."""
        for position in range(start, stop, CHUNK_BYTES):
            end = min(position + CHUNK_BYTES, stop)
            yield self.content[position:end] if self.fill is None else pattern(position, end)


STEP_KEYS = {
    "status", "reason", "headers", "body", "bodyBase64", "fill", "file",
    "length", "chunked", "hold", "then", "sendBytes",
}  # fmt: skip


def parse_headers(value: Any) -> List[Tuple[str, str]]:
    """Check the headers, which must not contain framing headers."""
    require(isinstance(value, list), "headers must be a list")
    headers: List[Tuple[str, str]] = []
    for pair in value:
        require(
            isinstance(pair, list) and len(pair) == 2 and all(isinstance(s, str) for s in pair),
            f"a header must be [name, value], not {pair!r}",
        )
        name, text = pair
        require(name.lower() not in FRAMING_HEADERS, f"{name} is set by length and chunked")
        require(bool(name) and not set("\r\n") & set(name + text), f"broken header {pair!r}")
        headers.append((name, text))
    return headers


def parse_body(raw: Dict[str, Any]) -> Tuple[Union[bytes, mmap.mmap], Optional[int]]:
    """The body in memory, or the number of pattern bytes that it has."""
    given = [key for key in ("body", "bodyBase64", "fill", "file") if key in raw]
    require(len(given) <= 1, f"only one of {given} can be the body")
    if "fill" in raw:
        require(is_count(raw["fill"]), "fill must be a number of bytes")
        return b"", raw["fill"]
    if "file" in raw:
        with open(raw["file"], "rb") as content:
            return mmap.mmap(content.fileno(), 0, access=mmap.ACCESS_READ), None
    text = raw.get("body", raw.get("bodyBase64", ""))
    require(isinstance(text, str), "the body must be text")
    if "bodyBase64" not in raw:
        return text.encode(), None
    try:
        return base64.b64decode(text, validate=True), None
    except binascii.Error as error:
        raise ScriptError(f"bodyBase64: {error}") from error


def parse_step(raw: Any) -> Step:
    """Check one step, because a misspelt member could make a test pass for no reason."""
    require(isinstance(raw, dict), f"a step must be an object, not {raw!r}")
    require(not set(raw) - STEP_KEYS, f"unknown members {sorted(set(raw) - STEP_KEYS)}")
    content, fill = parse_body(raw)
    step = Step(
        status=raw.get("status", 200),
        reason=raw.get("reason"),
        headers=parse_headers(raw.get("headers", [])),
        content=content,
        fill=fill,
        length=raw.get("length", "exact"),
        chunked=raw.get("chunked", False),
        hold=raw.get("hold"),
        then=raw.get("then", "keep"),
        send_bytes=raw.get("sendBytes"),
    )
    require(is_count(step.status) and 200 <= step.status <= 599, f"bad status {step.status!r}")
    require(step.reason is None or isinstance(step.reason, str), f"bad reason {step.reason!r}")
    require(
        step.length in ("exact", "none") or is_count(step.length), f"bad length {step.length!r}"
    )
    require(isinstance(step.chunked, bool), f"bad chunked {step.chunked!r}")
    require(not (step.chunked and is_count(step.length)), "chunked leaves no room for a length")
    require(
        step.hold in (None, "before", "headers") or is_count(step.hold), f"bad hold {step.hold!r}"
    )
    require(step.then in ("keep", "close", "reset"), f"bad then {step.then!r}")
    require(step.send_bytes is None or is_count(step.send_bytes), f"bad sendBytes {raw!r}")
    require(
        step.status not in (204, 304) or step.body_size == 0, f"{step.status} carries no body"
    )
    return step


NOT_FOUND = parse_step({"status": 404, "body": "no script for this path\n"})


class ScriptedResponse(web.StreamResponse):
    """An answer with the framing that a step asks for, right or wrong."""

    def __init__(self, step: Step) -> None:
        super().__init__(status=step.status, reason=step.reason)
        self.step = step
        for name, value in step.headers:
            self.headers.add(name, value)
        if step.delimited_by_close:
            self.force_close()


async def unframe(request: web.Request, response: web.StreamResponse) -> None:
    """Replace the framing headers of the library, and its checks, by those of the step."""
    if not isinstance(response, ScriptedResponse):
        return
    step, headers = response.step, response.headers
    scripted = {name.lower() for name, _ in step.headers}
    for name in ("Server", "Content-Type", "Content-Length", "Transfer-Encoding"):
        if name.lower() not in scripted:
            headers.popall(name, None)
    if step.chunked:
        headers["Transfer-Encoding"] = "chunked"
    elif step.announced_size is not None:
        headers["Content-Length"] = str(step.announced_size)
    writer: Any = request.writer
    writer.length = None
    writer.chunked = step.chunked and request.method != "HEAD"


@dataclass(eq=False)
class Exchange:
    """A request being answered."""

    path: str
    step: Step
    request: web.BaseRequest
    transport: asyncio.Transport
    released: asyncio.Event = field(default_factory=asyncio.Event)

    @property
    def lost(self) -> bool:
        """Whether the connection has ended."""
        return self.request.transport is None or self.transport.is_closing()

    def check(self) -> None:
        """Stop when the client can no longer read the answer."""
        if self.lost:
            raise ConnectionResetError("the client has gone")

    async def wait_released(self) -> None:
        """Hold the answer until its release or until the client hangs up."""
        while not self.released.is_set():
            self.check()
            await asyncio.sleep(POLL_SECONDS)
        self.check()

    async def stall(self) -> None:
        """Send nothing more until the connection ends."""
        while not self.lost:
            await asyncio.sleep(POLL_SECONDS)

    async def flush(self) -> None:
        """Wait until the peer has received everything, because an RST discards unsent data."""
        deadline = time.monotonic() + FLUSH_SECONDS
        empty = 0
        # TLS has another buffer that is not visible here. It holds bytes only while the kernel's
        # queue is full, so this looks several times in a row.
        while empty < 3 and not self.lost and time.monotonic() < deadline:
            pending = self.transport.get_write_buffer_size() + unacknowledged(self.transport)
            empty = empty + 1 if pending == 0 else 0
            await asyncio.sleep(0.002)


def unacknowledged(transport: asyncio.Transport) -> int:
    """The number of sent bytes that the peer has not acknowledged."""
    connection = transport.get_extra_info("socket")
    if connection is None:
        return 0
    try:
        answer = fcntl.ioctl(connection.fileno(), termios.TIOCOUTQ, struct.pack("i", 0))
    except OSError:
        return 0
    return int(struct.unpack("i", answer)[0])


def abort(transport: asyncio.Transport) -> None:
    """End a connection with RST, by closing a socket that does not linger."""
    connection = transport.get_extra_info("socket")
    if connection is None:  # Already over.
        return
    try:
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    except OSError:
        pass
    transport.abort()


def close(transport: asyncio.Transport) -> None:
    """Close a connection without RST."""
    connection = transport.get_extra_info("socket")
    tls = transport.get_extra_info("ssl_object") is not None
    transport.close()
    if tls and connection is not None:
        # The transport would wait until the peer closes too, which clients that wait for the end of
        # the connection never do.
        try:
            connection.shutdown(socket.SHUT_WR)
        except OSError:
            pass


class Scripts:
    """The scripts of the tests and the requests of the clients since the last reset."""

    def __init__(self) -> None:
        self.steps: Dict[str, List[Step]] = {}
        self.requests: List[Tuple[int, str, Dict[str, Any]]] = []
        self.exchanges: List[Exchange] = []
        self.arrivals = 0
        self.connections: "weakref.WeakKeyDictionary[Any, int]" = weakref.WeakKeyDictionary()
        self.connection_count = 0

    def next_step(self, path: str) -> Step:
        """Take the next step of the path; the last one repeats."""
        steps = self.steps.get(path)
        if not steps:
            return NOT_FOUND
        return steps.pop(0) if len(steps) > 1 else steps[0]

    def connection_number(self, transport: Any) -> int:
        """A number for each connection. Ports will not do, because the system reuses them."""
        if transport not in self.connections:
            self.connection_count += 1
            self.connections[transport] = self.connection_count
        return self.connections[transport]

    def record(self, arrival: int, path: str, entry: Dict[str, Any]) -> None:
        """Record a complete request, in the order in which the heads arrived."""
        self.requests.append((arrival, path, entry))
        self.requests.sort(key=lambda item: item[0])

    def reset(self) -> None:
        """Forget everything and abort unfinished answers."""
        self.steps.clear()
        self.requests.clear()
        for exchange in list(self.exchanges):
            abort(exchange.transport)


def path_of(request: web.BaseRequest) -> str:
    """The path as it was sent, encoded and without its query."""
    return request.raw_path.split("?", 1)[0]


async def read_body(request: web.BaseRequest) -> bytes:
    """The whole request body; an interrupted upload counts as a lost connection."""
    try:
        return await request.read()
    except (web.HTTPException, OSError):
        raise
    except Exception as error:  # The library raises several kinds of errors here.
        raise ConnectionResetError("the request broke off") from error


class Server:
    """The request handlers of both ports."""

    def __init__(self) -> None:
        self.scripts = Scripts()

    async def answer(self, request: web.Request) -> web.StreamResponse:
        """Record a request and answer it; only bugs of the server itself are reported."""
        exchange: Optional[Exchange] = None
        try:
            exchange = await self.accept(request)
            response = ScriptedResponse(exchange.step)
            self.scripts.exchanges.append(exchange)
            await self.play(exchange, request, response)
            return response
        except Exception as error:
            if not isinstance(error, ConnectionError):
                traceback.print_exc()
            if request.transport is not None:
                abort(request.transport)
            return web.Response(status=500)  # Never sent, but the library needs one.
        finally:
            if exchange is not None and exchange in self.scripts.exchanges:
                self.scripts.exchanges.remove(exchange)

    async def accept(self, request: web.Request) -> Exchange:
        """Record a request and take its step at once, so that no release comes in between."""
        transport = request.transport
        if transport is None:
            raise ConnectionResetError("the client has gone")
        path = path_of(request)
        self.scripts.arrivals += 1
        arrival = self.scripts.arrivals
        entry = {
            "method": request.method,
            "target": request.raw_path.encode("utf-8", "surrogateescape").decode("latin-1"),
            "version": f"{request.version.major}.{request.version.minor}",
            "headers": [
                [name.decode("latin-1"), value.decode("latin-1")]
                for name, value in request.raw_headers
            ],
            "https": request.secure,
            "timeMs": time.time_ns() // 1_000_000,
            "connection": self.scripts.connection_number(transport),
        }
        entry["body"] = base64.b64encode(await read_body(request)).decode("ascii")
        self.scripts.record(arrival, path, entry)
        return Exchange(path, self.scripts.next_step(path), request, transport)

    async def play(
        self, exchange: Exchange, request: web.Request, response: ScriptedResponse
    ) -> None:
        """Send, hold and end as the step says."""
        step = exchange.step
        if step.hold == "before":
            await exchange.wait_released()
        await response.prepare(request)
        writer: Any = request.writer
        if hasattr(writer, "send_headers"):  # Newer versions delay them until the first chunk.
            writer.send_headers()
        if step.hold == "headers":
            await exchange.wait_released()
        size = 0 if request.method == "HEAD" else step.sent_size
        held_at = min(step.hold, size) if isinstance(step.hold, int) else 0
        await self.send(exchange, response, 0, held_at)
        if isinstance(step.hold, int):
            await exchange.wait_released()
        await self.send(exchange, response, held_at, size)
        await self.end(exchange, request, response)

    async def send(
        self, exchange: Exchange, response: ScriptedResponse, start: int, stop: int
    ) -> None:
        """Send a part of the body no faster than the client takes it."""
        for piece in exchange.step.pieces(start, stop):
            exchange.check()
            await response.write(piece)
            await exchange.request.writer.drain()
            # Without this, a TLS connection that the client resets takes everything at once, and
            # the event loop never comes to end it.
            await asyncio.sleep(0)

    async def end(
        self, exchange: Exchange, request: web.Request, response: ScriptedResponse
    ) -> None:
        """End the answer as the step says."""
        step = exchange.step
        cut = step.sent_size < step.body_size
        announced = step.announced_size
        if step.chunked and not cut:
            await response.write_eof()
        if step.then == "reset":
            await exchange.flush()
            abort(exchange.transport)
        elif step.then == "close" or step.delimited_by_close:
            await exchange.flush()
            close(exchange.transport)
        elif request.method != "HEAD" and step.status not in (204, 304):
            short = announced is not None and step.sent_size < announced
            if short or (step.chunked and cut):
                await exchange.stall()

    async def set_script(self, request: web.Request) -> web.Response:
        """Replace the steps of a path."""
        try:
            raw = json.loads(await request.text())
            require(isinstance(raw, dict), "a script must be an object")
            path, steps = raw.get("path"), raw.get("steps")
            require(isinstance(path, str) and path.startswith("/"), f"bad path {path!r}")
            require("?" not in path, f"a path to script has no query: {path}")
            require(isinstance(steps, list) and len(steps) > 0, "steps must be a list, not empty")
            self.scripts.steps[path] = [parse_step(step) for step in steps]
        except ValueError as error:
            return web.Response(status=400, text=f"{error}\n")
        return web.json_response({})

    async def list_requests(self, request: web.Request) -> web.Response:
        """The requests since the last reset."""
        return web.json_response([entry for _, _, entry in self.scripts.requests])

    async def count_requests(self, request: web.Request) -> web.Response:
        """The number of requests, because waiting tests ask often and bodies can be large."""
        wanted = request.query.get("path")
        count = sum(1 for _, path, _ in self.scripts.requests if wanted in (None, path))
        return web.json_response({"count": count})

    async def release(self, request: web.Request) -> web.Response:
        """Release one held answer, even if it has not reached its hold yet."""
        try:
            path = json.loads(await request.text())["path"]
        except (ValueError, KeyError, TypeError):
            return web.Response(status=400, text="a release needs a path\n")
        for exchange in self.scripts.exchanges:
            waits = exchange.step.hold is not None and not exchange.released.is_set()
            if exchange.path == path and waits and not exchange.lost:
                exchange.released.set()
                return web.json_response({"released": True})
        return web.json_response({"released": False})

    async def reset(self, request: web.Request) -> web.Response:
        """Prepare for the next test."""
        self.scripts.reset()
        return web.json_response({})

    def application(self, control: bool) -> web.Application:
        """The handlers of one port."""
        app = web.Application(client_max_size=MAX_REQUEST_BYTES)
        app.on_response_prepare.append(unframe)
        if control:
            app.router.add_post("/_control/script", self.set_script)
            app.router.add_get("/_control/requests", self.list_requests)
            app.router.add_get("/_control/count", self.count_requests)
            app.router.add_post("/_control/release", self.release)
            app.router.add_post("/_control/reset", self.reset)
        app.router.add_route("*", "/{tail:.*}", self.answer)
        return app


def make_certificate(folder: Path) -> Tuple[Path, Path]:
    """A new certificate, so that the sources contain no key and none expires."""
    certificate, key = folder / "certificate.pem", folder / "key.pem"
    command = ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt"]
    command += ["ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj", "/CN=localhost"]
    command += ["-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1"]
    command += ["-keyout", str(key), "-out", str(certificate)]
    made = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True)
    if made.returncode != 0:
        sys.exit(f"openssl could not make a certificate:\n{made.stderr}")
    return certificate, key


async def listen(
    app: web.Application, context: Optional[ssl.SSLContext]
) -> Tuple[web.AppRunner, int]:
    """Open a free port."""
    # Bodies are recorded as they were sent, so they must not be decompressed.
    runner = web.AppRunner(
        app,
        access_log=None,
        handle_signals=False,
        keepalive_timeout=IDLE_SECONDS,
        auto_decompress=False,
    )
    await runner.setup()
    site = web.TCPSite(runner, "127.0.0.1", 0, ssl_context=context, shutdown_timeout=0.1)
    await site.start()
    return runner, int(runner.addresses[0][1])


def report_defect(loop: asyncio.AbstractEventLoop, context: Dict[str, Any]) -> None:
    """Report bugs only: clients may hang up or refuse the certificate."""
    error = context.get("exception")
    if isinstance(error, (OSError, ssl.SSLError)):
        return
    # The event loop fails when a reset arrives while it closes a TLS connection.
    if "_call_connection_lost" in context.get("message", ""):
        return
    loop.default_exception_handler(context)


def stop_at_end_of_input(loop: asyncio.AbstractEventLoop, stop: asyncio.Event) -> None:
    """Read standard input on a thread, because the event loop cannot watch files and devices."""

    def watch() -> None:
        while os.read(0, 4096):
            pass
        try:
            loop.call_soon_threadsafe(stop.set)
        except RuntimeError:  # The loop ended first.
            pass

    threading.Thread(target=watch, daemon=True).start()


async def serve(folder: Path, keep: bool) -> None:
    """Run until told to stop."""
    loop = asyncio.get_running_loop()
    loop.set_exception_handler(report_defect)
    stop = asyncio.Event()
    for number in (signal.SIGTERM, signal.SIGINT):
        loop.add_signal_handler(number, stop.set)
    if not keep:
        stop_at_end_of_input(loop, stop)
    certificate, key = make_certificate(folder)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate, key)
    server = Server()
    plain, http = await listen(server.application(control=True), None)
    secure, https = await listen(server.application(control=False), context)
    print(json.dumps({"http": http, "https": https, "certificate": str(certificate)}), flush=True)
    await stop.wait()
    server.scripts.reset()
    await asyncio.gather(plain.cleanup(), secure.cleanup())


def main() -> None:
    """Start without the logging of the library, because tests break connections on purpose."""
    parser = argparse.ArgumentParser(description="Scripted web server for tests.")
    parser.add_argument("--keep", action="store_true", help="run until SIGTERM, ignoring stdin")
    keep = parser.parse_args().keep
    logging.getLogger("aiohttp").setLevel(logging.CRITICAL + 1)
    logging.getLogger("asyncio").setLevel(logging.ERROR)
    with tempfile.TemporaryDirectory(prefix="scriptedserver-") as folder:
        asyncio.run(serve(Path(folder), keep))


if __name__ == "__main__":
    main()
