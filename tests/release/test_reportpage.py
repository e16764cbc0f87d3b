#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The page of the report in a real browser: complete, harmless whatever is in the logs, and readable."""

import html
import json
import re
import subprocess
import sys
import tempfile
import unittest
from html.parser import HTMLParser
from pathlib import Path
from typing import Dict, List

TOOL = ""
BROWSER = "chromium"
TIME_LIMIT = 120  # seconds, for what takes two
NARROW, WIDE = 340, 1200  # pixels

# Text that any client can put into the log.
HOSTILE_VERSION = "<script>document.title='hit'</script>"
HOSTILE_PACKAGE = "<img src=x onerror=alert()>&amp;%1.zip"
HOSTILE_PRODUCT = "--><svg onload=alert()>"

# Runs in the page, so that it sees the widths of the layout.
MEASURE = """
<script>
const box = element => {
    const {left, right, top, bottom} = element.getBoundingClientRect();
    return {left, right, top, bottom, text: element.textContent};
};
const all = selector => [...document.querySelectorAll(selector)].map(box);
parent.document.title = JSON.stringify({
    width: innerWidth,
    needed: document.documentElement.scrollWidth,
    paper: getComputedStyle(document.body).backgroundColor,
    ink: getComputedStyle(document.body).color,
    bars: all('figure rect'),
    labels: [...document.querySelectorAll('figure > svg, .days svg')].map(
        svg => [...svg.querySelectorAll('text')].map(box)),
});
</script>
"""


def line(time: str, method: str, path: str, **more: object) -> str:
    """A line of the access log."""
    entry = {
        "time": f"2026-11-{time}+00:00",
        "address": "192.0.2.1",
        "method": method,
        "path": path,
        "status": "200",
        "bytes": 1000,
        "completed": "OK",
        "version": "",
        "answer": "",
        "package": "",
    }
    return json.dumps({**entry, **more}) + "\n"


def ordinary_log() -> str:
    """A log of three weeks with two releases and many checks per day."""
    text = ""
    for day in range(1, 22):
        version = "2.1.3" if day > 10 else "2.1.2"
        for number in range(120):
            offer = {"answer": version, "package": f"Client-{version}.zip"}
            more = {"address": f"192.0.{day}.{number}", "version": f"2.0.{number % 12}"}
            text += line(f"{day:02}T08:00:00", "POST", "/check", **more, **offer)
        for number, completed in enumerate(["OK", "OK", "", "OK"]):
            path = f"/packages/Client-{version}.zip"
            more = {"address": f"192.0.{day}.{number}", "completed": completed}
            text += line(f"{day:02}T09:00:00", "GET", path, **more)
    return text


def hostile_log() -> str:
    """A log with markup in every text that reaches the page."""
    offer = {"version": HOSTILE_VERSION, "answer": "<b>9</b>", "package": HOSTILE_PACKAGE}
    return (
        line("01T08:00:00", "POST", f"/{HOSTILE_PRODUCT}/check", **offer)
        + line("01T08:00:01", "POST", "/check", **offer)
        + line("01T08:00:02", "GET", "/packages/<i>other.zip")
        + line("01T08:00:03", "POST", "/check", version="\u202e\u0007")
    )


class Elements(HTMLParser):
    """The elements of a page, with their attributes."""

    def __init__(self, page: str) -> None:
        super().__init__()
        self.found: List[tuple] = []
        self.feed(page)

    def handle_starttag(self, tag: str, attrs: list) -> None:
        self.found.append((tag, dict(attrs)))

    def names(self) -> List[str]:
        """The name of each element."""
        return [name for name, _ in self.found]

    def attributes(self, name: str) -> List[str]:
        """The values of this attribute in all elements."""
        return [attributes[name] for _, attributes in self.found if name in attributes]


class ReportPage(unittest.TestCase):
    """Each test has a log, its page and a browser with a private profile."""

    def setUp(self) -> None:
        self.room = Path(self.enterContext(tempfile.TemporaryDirectory()))

    def page_of(self, log: str) -> str:
        """The page for a log."""
        (self.room / "updates.log").write_text(log, encoding="utf-8")
        command = [TOOL, "report", str(self.room / "updates.log"), "--html", str(self.room / "page.html")]
        subprocess.run(command, check=True, capture_output=True, timeout=TIME_LIMIT)
        return (self.room / "page.html").read_text(encoding="utf-8")

    def opened(self, page: str, *options: str) -> str:
        """The document of the loaded page as HTML."""
        file = self.room / "opened.html"
        file.write_text(page, encoding="utf-8")
        # fmt: off
        command = [
            BROWSER, "--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
            f"--user-data-dir={self.room / 'profile'}", *options, "--dump-dom", file.as_uri(),
        ]
        # fmt: on
        run = subprocess.run(command, check=True, capture_output=True, text=True, timeout=TIME_LIMIT)
        return run.stdout

    def measured(self, page: str, width: int, *options: str) -> Dict:
        """The result of MEASURE in a page of this width with unfolded tables."""
        without_policy = re.sub('<meta http-equiv="Content-Security-Policy"[^>]*>', "", page)
        unfolded = without_policy.replace("<details>", "<details open>")
        frame = html.escape(unfolded.replace("</body>", MEASURE + "</body>"))
        dom = self.opened(f'<iframe width="{width}" height="900" srcdoc="{frame}"></iframe>', *options)
        title = re.search("<title>(.*?)</title>", dom, re.DOTALL)
        assert title, dom[:500]
        return json.loads(html.unescape(title.group(1)))

    def test_page_loads_and_runs_nothing(self) -> None:
        page = self.page_of(ordinary_log())
        elements = Elements(page)
        allowed = {"html", "head", "meta", "title", "style", "body", "h1", "h2", "h3", "p", "section", "figure"}
        allowed |= {"figcaption", "span", "ul", "li", "svg", "desc", "rect", "line", "text", "div", "details"}
        allowed |= {"summary", "table", "thead", "tbody", "tr", "th", "td"}
        self.assertEqual(set(elements.names()) - allowed, set())
        self.assertEqual(elements.attributes("src") + elements.attributes("href"), [])
        self.assertNotRegex(page, r"url\(|@import|https?:")
        self.assertIn("default-src 'none'; style-src 'unsafe-inline'", elements.attributes("content"))

    def test_every_chart_is_described_and_has_a_table(self) -> None:
        page = self.page_of(ordinary_log())
        figures = re.findall("<figure>.*?</figure>", page, re.DOTALL)
        self.assertEqual(len(figures), 4, "checks, two releases, downloads")
        for figure in figures:
            elements = Elements(figure)
            ids = elements.attributes("id")
            self.assertEqual(elements.attributes("aria-labelledby"), [" ".join(ids)])
            self.assertRegex(figure, f'<title id="{ids[0]}">[^<]+</title>\n<desc id="{ids[1]}">[^<]+</desc>')
            self.assertEqual(elements.names().count("table"), 1)
        ids = Elements(page).attributes("id")
        self.assertEqual(len(ids), len(set(ids)))

    def test_texts_of_logs_stay_texts(self) -> None:
        page = self.page_of(hostile_log())
        dom = self.opened(page)
        for name in ("script", "img", "b", "i"):
            self.assertNotIn(name, Elements(dom).names())
        self.assertIn("<title>How the releases are doing</title>", dom)
        for text in (HOSTILE_VERSION, HOSTILE_PACKAGE, HOSTILE_PRODUCT, "<i>other.zip", "<b>9</b>"):
            self.assertIn(html.escape(text, quote=False), dom)
        self.assertNotIn("\u202e", dom)

    def test_nothing_is_cut_off(self) -> None:
        page = self.page_of(ordinary_log())
        for width in (NARROW, WIDE):
            found = self.measured(page, width)
            self.assertEqual(found["width"], width)
            self.assertLessEqual(found["needed"], width)
            self.assertGreater(len(found["bars"]), 21)
            for bar in found["bars"]:
                self.assertGreaterEqual(bar["left"], 0, bar)
                self.assertLessEqual(bar["right"], width, bar)

    def test_labels_do_not_touch(self) -> None:
        found = self.measured(self.page_of(ordinary_log()), NARROW)
        self.assertEqual(len(found["labels"]), 4)
        for labels in found["labels"]:
            self.assertGreater(len(labels), 5)
            for index, one in enumerate(labels):
                self.assertGreaterEqual(one["left"], 0, one)
                for other in labels[:index]:
                    is_apart = (
                        one["left"] >= other["right"]
                        or one["right"] <= other["left"]
                        or one["top"] >= other["bottom"]
                        or one["bottom"] <= other["top"]
                    )
                    self.assertTrue(is_apart, (one, other))

    def test_scheme_is_the_readers(self) -> None:
        page = self.page_of(ordinary_log())
        light = self.measured(page, WIDE, "--blink-settings=preferredColorScheme=1")
        dark = self.measured(page, WIDE, "--blink-settings=preferredColorScheme=0")
        self.assertEqual(light["paper"], "rgb(255, 255, 255)")
        self.assertEqual(light["ink"], "rgb(32, 49, 82)")
        self.assertEqual(dark["paper"], "rgb(23, 28, 38)")
        self.assertEqual(dark["ink"], "rgb(223, 229, 240)")

    def test_logs_without_requests_have_a_page(self) -> None:
        self.assertIn("no checks and no downloads", self.opened(self.page_of("")))


if __name__ == "__main__":
    TOOL = sys.argv.pop(1)
    unittest.main()
