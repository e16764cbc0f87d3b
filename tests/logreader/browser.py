# SPDX-License-Identifier: MIT
"""A headless Chromium, controlled through its DevTools protocol over a pipe."""

import base64
import fcntl
import json
import os
import subprocess
import tempfile
from pathlib import Path
from typing import Any, Dict, Iterator, List, Optional

BROWSER = "chromium"
ABOVE_STANDARD = 10  # file descriptors from here on are free of those that the browser expects
TIME_LIMIT = 60  # seconds, for what takes a few


class Browser:
    """A browser with a private profile and one page."""

    def __init__(self, *options: str) -> None:
        self._room = tempfile.TemporaryDirectory()
        to_browser, self._write = self._pipe()
        self._read, from_browser = self._pipe()

        def give_pipes() -> None:
            os.dup2(to_browser, 3)
            os.dup2(from_browser, 4)

        # fmt: off
        command = [
            BROWSER, "--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
            "--remote-debugging-pipe", f"--user-data-dir={self._room.name}", *options, "about:blank",
        ]
        # fmt: on
        self._process = subprocess.Popen(
            command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            preexec_fn=give_pipes, pass_fds=(3, 4),
        )
        os.close(to_browser)
        os.close(from_browser)
        self._messages = self._received()
        self._number = 0
        self.events: List[Dict] = []
        self._session: Optional[str] = None
        target = self.send("Target.createTarget", url="about:blank")["targetId"]
        self._session = self.send("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        self.send("Emulation.setScrollbarsHidden", hidden=True)
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.send(f"{domain}.enable")

    @staticmethod
    def _pipe() -> tuple:
        ends = os.pipe()
        moved = tuple(fcntl.fcntl(end, fcntl.F_DUPFD_CLOEXEC, ABOVE_STANDARD) for end in ends)
        for end in ends:
            os.close(end)
        return moved

    def __enter__(self) -> "Browser":
        return self

    def __exit__(self, *_: object) -> None:
        try:
            self._session = None
            self.send("Browser.close")
            self._process.wait(TIME_LIMIT)
        finally:
            self._process.kill()
            self._process.wait()
            os.close(self._read)
            os.close(self._write)
            self._room.cleanup()

    def _received(self) -> Iterator[Dict]:
        rest = b""
        while chunk := os.read(self._read, 1 << 20):
            *whole, rest = (rest + chunk).split(b"\0")
            yield from map(json.loads, whole)
        raise EOFError("the browser ended")

    def send(self, method: str, **parameters: Any) -> Dict:
        """Calls a method of the protocol and returns its result. Earlier events go to `events`."""
        self._number += 1
        message = {"id": self._number, "method": method, "params": parameters}
        if self._session:
            message["sessionId"] = self._session
        data = json.dumps(message).encode() + b"\0"
        while data:
            data = data[os.write(self._write, data) :]
        for answer in self._messages:
            if answer.get("id") == self._number:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']}")
                return answer["result"]
            self.events.append(answer)
        raise AssertionError

    def wait_for(self, event: str) -> Dict:
        """Waits for an event and returns its parameters."""
        while True:
            for index, message in enumerate(self.events):
                if message["method"] == event:
                    return self.events.pop(index)["params"]
            self.events.append(next(self._messages))

    def open(self, page: Path) -> None:
        """Loads a page from disk."""
        self.events.clear()
        self.send("Page.navigate", url=page.as_uri())
        self.wait_for("Page.loadEventFired")

    def evaluate(self, expression: str) -> Any:
        """The value of an expression in the page; waits if it is a promise."""
        result = self.send("Runtime.evaluate", expression=expression, awaitPromise=True, returnByValue=True)
        if "exceptionDetails" in result:
            raise AssertionError(json.dumps(result["exceptionDetails"])[:2000])
        return result["result"].get("value")

    def call(self, function: str, *arguments: object) -> Any:
        """Calls a function in the page and returns its value."""
        return self.evaluate(f"({function})({', '.join(json.dumps(argument) for argument in arguments)})")

    def wait_until(self, condition: str) -> None:
        """Waits for a condition, which is checked in each animation frame."""
        self.call(
            """milliseconds => new Promise((resolve, reject) => {
                const end = performance.now() + milliseconds;
                const look = () => (%s) ? resolve()
                    : performance.now() > end ? reject(new Error("never so")) : requestAnimationFrame(look);
                look();
            })""" % condition,
            TIME_LIMIT * 1000,
        )

    def press(self, key: str, code: int, text: str = "", modifiers: int = 0, commands: Optional[list] = None) -> None:
        """Presses and releases a key."""
        for kind in ("keyDown", "keyUp"):
            self.send(
                "Input.dispatchKeyEvent", type=kind, key=key, code=key, windowsVirtualKeyCode=code,
                modifiers=modifiers, **({"text": text} if text and kind == "keyDown" else {}),
                **({"commands": commands} if commands and kind == "keyDown" else {}),
            )

    def drop(self, file: Path) -> None:
        """Drops a file onto the page."""
        data = {"items": [], "files": [str(file)], "dragOperationsMask": 1}
        for kind in ("dragEnter", "dragOver", "drop"):
            self.send("Input.dispatchDragEvent", type=kind, x=100, y=100, data=data)

    def choose(self, selector: str, file: Path) -> None:
        """Chooses a file in an input."""
        root = self.send("DOM.getDocument")["root"]["nodeId"]
        node = self.send("DOM.querySelector", nodeId=root, selector=selector)["nodeId"]
        self.send("DOM.setFileInputFiles", nodeId=node, files=[str(file)])

    def media(self, scheme: str) -> None:
        """Sets the colour scheme, light or dark."""
        self.send("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])

    def width(self, pixels: int) -> None:
        """Sets the width of the page."""
        self.send("Emulation.setDeviceMetricsOverride", width=pixels, height=900, deviceScaleFactor=1, mobile=False)

    def picture(self, file: Path) -> None:
        """Saves the whole page as PNG."""
        size = self.send("Page.getLayoutMetrics")["cssContentSize"]
        clip = {"x": 0, "y": 0, "width": size["width"], "height": size["height"], "scale": 1}
        shot = self.send("Page.captureScreenshot", captureBeyondViewport=True, clip=clip)
        file.write_bytes(base64.b64decode(shot["data"]))
