#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The log reader in a browser: all lines, damaged and mixed logs, hostile texts, accessibility."""

import json
import random
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from browser import Browser

PROJECT = Path(__file__).resolve().parents[2]
PAGE = PROJECT / "support/log-reader.html"
LOGS = Path(__file__).resolve().parent / "logs"
AXE = Path()

NARROW, WIDE = 320, 1000  # pixels
LOG_LIMIT = 30 * 1024 * 1024  # bytes, beyond which the program empties its log
CONTROL, SHIFT = 2, 8  # of the DevTools protocol

HEAD = "[2026-11-22 10:15:{:02}] [INFO] (:0) "

# Markup in every text of the log that comes from the service, the user or Qt.
HOSTILE = "<script>document.title='hit'</script><img src=x onerror=\"document.title='hit'\"><b>bold</b>"
BIDI = "\u202eexe.tneilC\u202c"


def quoted(text: str) -> str:
    """A text as the program logs it."""
    return json.dumps(text, ensure_ascii=False)


def run_lines(product: str, version: str = "2.1.3", notes: str = "", arguments: tuple = ()) -> list:
    """The lines of a run that updates this product, without time and level."""
    package = f"C:/Users/Li Lei/AppData/Local/{product}/{product}.zip"
    digest = f"{sum(product.encode()):032x}"
    answer = {
        "code": "000000",
        "biz": {
            "update": "1", "latestVersion": version, "latestVersionInfo": notes, "md5": digest, "packageSize": 6291456,
            "latestVersionUrl": f"https://updates.example.com/packages/{product}.zip",
        },
    }
    address = f"https://updates.example.com/{product}"
    return [
        f'currentVersion: "1.0.0" ,updateCheckUrl: "{address}/check" ,m_getPackUrl: "{address}/" ,m_remide: 0',
        *[f"cmd line parameters : {quoted(argument)}" for argument in arguments],
        f"Service Jsondata: {quoted(json.dumps(answer, ensure_ascii=False))}",
        "isShowUpdataInfo.txt not exists",
        f"update fileName:  {quoted(package)}",
        "Download Network Error: QNetworkReply::RemoteHostClosedError",
        "NetworkReply Get TimerOut",
        "Download Network Error: QNetworkReply::RemoteHostClosedError",
        "NetworkReply Get TimerOut",
        f'org: "{digest}"  checkmd5: "{digest}"',
        f"{quoted(package)}  successfully decompressed",
        "update.log write successed",
        "isShowUpdataInfo.txt write successed",
        f'"C:/Norvane/{product}/AutoUpdate"  copy file successed',
        "autoupdate config veison update successed",
        f'"{product}.exe"  starting...',
    ]


def log_of(lines: list, per_second: int = 1) -> str:
    """A log of these lines, with times and CR LF."""
    return "".join(f"{HEAD.format(number // per_second % 60)}{line}\r\n" for number, line in enumerate(lines))


class LogReader(unittest.TestCase):
    """One browser for all tests; each loads the page again."""

    @classmethod
    def setUpClass(cls) -> None:
        cls.browser = cls.enterClassContext(Browser())

    def setUp(self) -> None:
        self.room = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.browser.width(WIDE)
        self.browser.media("light")
        self.browser.open(PAGE)
        self.speak("en")

    def speak(self, language: str) -> None:
        """Switches the language of the page."""
        self.browser.call("name => document.querySelector(`[data-language=${name}]`).click()", language)

    def drop(self, content: object) -> None:
        """Drops a log onto the page and waits until it is shown."""
        file = self.room / "AutoUpdate.log"
        file.write_bytes(content if isinstance(content, bytes) else str(content).encode())
        self.browser.evaluate("page.log = null")
        self.browser.drop(file)
        self.browser.wait_until("page.log")

    def text(self, selector: str) -> str:
        """The visible text of an element."""
        return self.browser.call("selector => document.querySelector(selector).innerText", selector)

    def unfold(self) -> None:
        """Unfolds the lines of all runs."""
        self.browser.evaluate("for (const each of document.querySelectorAll('details')) each.open = true")
        self.browser.wait_until("[...document.querySelectorAll('details')].every(each => each.querySelector('.lines'))")

    def test_page_is_up_to_date(self) -> None:
        command = [PROJECT / "support/make-log-reader", "--check"]
        made = subprocess.run(command, capture_output=True, text=True, check=False)
        self.assertEqual((made.returncode, made.stderr), (0, ""))

    def test_page_can_connect_to_nothing(self) -> None:
        page = PAGE.read_text(encoding="utf-8")
        self.assertRegex(page, r"content=\"default-src 'none'; script-src 'sha256-[^' ]+'; style-src 'sha256-[^' ]+'")
        self.assertNotRegex(page, r"(?i)\b(src|srcset|action|poster)=|url\(|@import|href=")
        refused = self.browser.evaluate(
            """new Promise(resolve => {
                document.addEventListener("securitypolicyviolation", event => resolve(event.effectiveDirective));
                fetch("https://127.0.0.1:9/").catch(() => {});
            })"""
        )
        self.assertEqual(refused, "connect-src")
        self.assertIn("Nothing leaves this machine", self.text("#privacy"))

    def test_language_is_the_browsers(self) -> None:
        agent = self.browser.evaluate("navigator.userAgent")
        for accepted, title in (("zh-CN", "日志阅读器"), ("de", "Log reader"), ("en-US", "Log reader")):
            self.browser.send("Emulation.setUserAgentOverride", userAgent=agent, acceptLanguage=accepted)
            self.browser.open(PAGE)
            self.assertEqual(self.text("h1"), title)
            self.assertEqual(self.browser.evaluate("document.documentElement.lang"), accepted[:2].replace("de", "en"))

    def test_every_line_is_told_from_the_others(self) -> None:
        values = {"N": "14", "ERROR": "QNetworkReply::HostNotFoundError"}
        hard = quoted('C:\\a "b"  starting...\\')
        lines = self.browser.evaluate("DATA.lines.map(({line}) => line)")
        self.assertGreater(len(lines), 45)
        written = [
            re.sub(r'"[A-Z]+"|\b(N|ERROR)$', lambda match: values.get(match.group(), hard), line) for line in lines
        ]
        found = self.browser.call(
            "text => { const log = new Log(text); log.read(); return log.patterns.map(pattern => pattern?.line); }",
            log_of(written),
        )
        self.assertEqual(found, lines)

    def test_every_failure_is_explained(self) -> None:
        for language, means in (("en", "Meaning"), ("zh", "含义")):
            self.speak(language)
            bad = self.browser.evaluate(
                "DATA.lines.filter(({rule}) => rule.failed || rule.minor).map(({line, %s: {means, todo}}) =>"
                " [line, plainText(means), plainText(todo)])" % language
            )
            self.assertGreater(len(bad), 25)
            for line, meaning, todo in bad:
                self.drop(log_of([line.replace('"PATH"', '"C:/x"')]))
                shown = self.text("#runs > li")
                self.assertIn(means, shown, line)
                for expected in (meaning, todo):
                    self.assertIn(expected.lower(), re.sub(r"\s+", " ", shown.lower()), line)

    def test_real_logs_tell_why_it_failed(self) -> None:
        english = {
            "untrusted": ("en", "Failed", ["download interrupted", "does not trust the certificate", "set the clock"]),
            "corrupt": ("en", "Failed", ["digests (checksums) differ", "announce the package's own digest"]),
            "full-disk": ("en", "Ended without a line", ["Disk out of space", "must be free.", "free some space"]),
            "full-during-download": ("en", "Failed", ["check that the disk was not full"]),
            "updated": ("en", "Updated", ["installed on the third attempt"]),
        }
        chinese = {
            "untrusted": ("zh", "失败", ["下载中断", "不信任更新包服务器的证书", "校准时钟"]),
            "corrupt": ("zh", "失败", ["与公布的校验和不符", "公布的校验和应是该更新包自己的"]),
            "full-disk": ("zh", "没有结果", ["磁盘空间不足", "可用空间必须大于", "腾出磁盘空间"]),
        }
        for name, (language, outcome, texts) in [*english.items(), *chinese.items()]:
            with self.subTest(name=name, language=language):
                self.speak(language)
                self.drop((LOGS / f"{name}.log").read_bytes())
                self.assertEqual(self.text(".outcome"), outcome)
                shown = self.text("#runs > li")
                for text in texts:
                    self.assertIn(text.lower(), shown.lower())
                self.assertTrue(self.browser.evaluate("page.log.patterns.every(pattern => pattern)"))

    def test_story_is_short_and_whole(self) -> None:
        self.drop(log_of(run_lines("Client")))
        story = re.sub(r"\d\d:\d\d:\d\d ", "", self.text(".story")).replace("\n", "")
        self.assertEqual(
            story,
            "the updater was started, version 1.0.0 was installed · offered 2.1.3 · the user chose Update · "
            "download interrupted twice, no data for 6 s · package downloaded · installed on the third attempt · "
            "client started",
        )
        self.assertEqual(self.text(".outcome"), "Updated")

    def test_chosen_file_is_opened(self) -> None:
        self.browser.choose("#file", LOGS / "updated.log")
        self.browser.wait_until("byId('runs').children.length")
        self.assertEqual(self.text(".outcome"), "Updated")

    def test_newest_run_is_first(self) -> None:
        self.drop(log_of(run_lines("Client", "2.1.3") + run_lines("Client", "2.1.4")))
        stories = self.browser.evaluate("[...document.querySelectorAll('.story')].map(story => story.textContent)")
        self.assertEqual([re.findall(r"offered ([\d.]+\d)", story) for story in stories], [["2.1.4"], ["2.1.3"]])

    def test_log_may_be_cut_anywhere(self) -> None:
        text = log_of(run_lines("Client") + run_lines("Client", "2.1.4")[:8] + run_lines("Other"))
        complaints = self.browser.call(
            """text => {
                const read = part => { const log = new Log(part); log.read(); return log; };
                const whole = read(text).runs;
                const complaints = [];
                for (let cut = 0; cut <= text.length; ++cut) {
                    const parts = [read(text.slice(0, cut)), read(text.slice(cut))];
                    for (const log of parts) {
                        const placed = log.runs.flatMap(run => run.lines).sort((one, other) => one - other);
                        if (placed.length !== log.starts.length || placed.some((number, index) => number !== index))
                            complaints.push(`cut at ${cut}: lines are missing`);
                        const kept = log.starts.map((start, index) => log.line(index)).join("");
                        if (kept !== log.text.replace(/[\\r\\n]/g, ""))
                            complaints.push(`cut at ${cut}: characters are missing`);
                    }
                    const [before, after] = parts.map(log => log.runs);
                    for (const run of [before[before.length - 1], after[0]].filter(run => run))
                        storyText(run, "en");
                    const untouched = before.slice(0, -1).every((run, index) => run.outcome === whole[index].outcome)
                        && after.slice(1).every((run, index) =>
                            run.outcome === whole[whole.length - after.length + 1 + index].outcome);
                    if (!untouched || before.length > 3 || after.length > 3)
                        complaints.push(`cut at ${cut}: other runs are touched`);
                }
                return complaints.slice(0, 10);
            }""",
            text,
        )
        self.assertEqual(complaints, [])

    def test_file_may_be_cut_in_a_character(self) -> None:
        text = log_of(run_lines("Client", arguments=("会议 – 😀",)))
        data = text.encode()
        start = data.index("会".encode())
        for cut in range(start, start + 20):
            for part in (data[:cut], data[cut:]):
                found = self.browser.call("bytes => decoded(Uint8Array.from(bytes), '').encoding", list(part))
                self.assertEqual(found, "utf-8", cut)

    def test_encodings_are_recognised(self) -> None:
        text = log_of(run_lines("Client", arguments=("会议室",)))
        western = log_of(run_lines("Client", arguments=("Büro für Café",)))
        for log, encoding, word in (
            (text, "utf-8", "会议室"), (text, "utf-8-sig", "会议室"), (text, "gb18030", "会议室"),
            (text, "utf-16", "会议室"), (western, "windows-1252", "Büro für Café"),
        ):
            self.drop(log.encode(encoding))
            self.unfold()
            self.assertIn(word, self.text(".lines"), encoding)
            self.assertEqual(self.text(".outcome"), "Updated", encoding)

    def test_encoding_can_be_chosen(self) -> None:
        self.drop(log_of(run_lines("Client", arguments=("Łódź",))).encode("windows-1250"))
        self.browser.evaluate(
            "byId('encoding').value = 'windows-1250'; byId('encoding').dispatchEvent(new Event('change'))"
        )
        self.browser.wait_until("page.log.text.includes('Łódź')")

    def mixed(self, one: list, other: list, seed: int) -> str:
        """The lines of two runs mixed at random, each in its order."""
        choice = random.Random(seed)
        rest = [list(one), list(other)]
        lines = []
        while any(rest):
            lines.append(choice.choice([part for part in rest if part]).pop(0))
        return log_of(lines, per_second=20)

    def test_runs_of_two_products_are_told_apart(self) -> None:
        one, other = run_lines("Client"), run_lines("Other", "3.0.0")[:7]
        for lines in (
            [*one[:9], *other, *one[9:]],
            [*other[:4], *one, *other[4:]],
            [*one[:14], *other[:3], *one[14:], *other[3:]],
        ):
            self.drop(log_of(lines))
            outcomes = self.browser.evaluate("page.log.runs.map(run => [run.client, run.outcome, run.overlaps])")
            self.assertEqual(sorted(outcomes), [["Client", "updated", True], ["Other", "failed", True]])
        self.assertIn("Another run wrote into the log at the same time", self.text("#runs"))

    def test_no_line_of_two_runs_is_lost(self) -> None:
        run = run_lines("Client")
        for seed in range(200):
            found = self.browser.call(
                """text => {
                    const log = new Log(text);
                    log.read();
                    return log.runs.map(run => [run.outcome, run.lines.length]);
                }""",
                self.mixed(run, run, seed),
            )
            self.assertEqual([outcome for outcome, _ in found], ["updated"] * 2, seed)
            self.assertEqual(sum(count for _, count in found), 2 * len(run))

    def test_killed_run_takes_nothing_of_the_next(self) -> None:
        run = run_lines("Client")
        for end in range(1, len(run)):
            found = self.browser.call(
                """text => {
                    const log = new Log(text);
                    log.read();
                    return log.runs.map(run => run.lines.length);
                }""",
                log_of(run[:end] + run),
            )
            self.assertEqual(found, [end, len(run)])

    def test_largest_log_opens(self) -> None:
        lines = run_lines("Client", notes="n" * 300, arguments=("--profile=two words",))
        text = log_of(lines)
        count = LOG_LIMIT // len(text) + 1
        self.drop(text * count)
        self.assertEqual(self.browser.evaluate("page.log.runs.length"), count)
        self.assertIn(f"Runs: {count}, failed: 0. Lines: {len(lines) * count}, from", self.text("#status"))
        shown = self.browser.evaluate("byId('runs').children.length")
        self.assertLess(shown, 100)
        self.browser.evaluate("byId('more-runs').click()")
        self.assertEqual(self.browser.evaluate("byId('runs').children.length"), 2 * shown)

    def test_hostile_texts_stay_texts(self) -> None:
        unknown = [f"{HOSTILE} {BIDI}", "x" * 3_000_000, "\0\x1b[2J"]
        lines = run_lines("Client", f"2.1.3{HOSTILE}", HOSTILE, (HOSTILE, BIDI))
        self.drop(log_of(lines) + "\r\n".join(unknown) + "\r\n")
        self.unfold()
        shown = self.text("#runs")
        self.assertIn("<script>document.title='hit'</script>", shown)
        self.assertIn("\\u202eexe.tneilC", shown)
        for character in "\u202e\u202c\0\x1b":
            self.assertNotIn(character, shown)
        self.assertLess(len(shown), 20_000)
        self.assertIn("offered another version", shown)
        names = self.browser.evaluate("[...document.querySelectorAll('main *')].map(element => element.localName)")
        self.assertEqual({"script", "img", "b"} & set(names), set())
        self.assertEqual(self.browser.evaluate("document.title"), "Log reader")
        self.browser.evaluate("[...document.querySelectorAll('.lines button')].pop().click()")
        self.browser.wait_until("byId('runs').textContent.length > 2990000")
        asked = [event["params"]["request"]["url"] for event in self.browser.events
                 if event["method"] == "Network.requestWillBeSent"]
        self.assertEqual(asked, [PAGE.as_uri()])

    def test_hostile_logs_open(self) -> None:
        head = HEAD.format(0)
        never_closed = f'{head}"x\r\n{head}cmd line parameters : "y\r\n' * 100_000
        errors = "".join(f"{head}Download Network Error: QNetworkReply::E{number}\r\n" for number in range(100_000))
        refusals = f'{head}org: "1"  checkmd5: "2"\r\n{head}"C:/x"  md5 check filed\r\n' * 50_000
        for text in (never_closed, errors, refusals, f"{head}Service Jsondata: \"{'x' * LOG_LIMIT}\"\r\n"):
            self.drop(text)
            self.assertLess(self.browser.evaluate("document.querySelectorAll('*').length"), 1000)
            self.assertEqual(self.browser.evaluate("[page.log.runs.length, byId('runs').children.length]"), [1, 1])

    def test_copy_has_no_secrets(self) -> None:
        self.browser.send("Browser.grantPermissions", permissions=["clipboardReadWrite", "clipboardSanitizedWrite"])
        arguments = ("qorb-meeting://host.example/room?id=7", "--token=abcd")
        lines = run_lines("Client", "C:/Users/Li Lei", arguments=arguments)
        refused = "Network Recv Back Error: QNetworkReply::ProxyAuthenticationRequiredError"
        broken = ['"C:/Users/Li Lei/secret"  Not exists', lines[0].replace("1.0.0", "/home/li/secret"), refused]
        self.drop(log_of([*lines[:6], *lines[-1:], *lines[:7], *broken]))
        self.assertEqual(self.browser.evaluate("page.shown.length"), 4)
        for number in range(4):
            for language in ("en", "zh"):
                self.speak(language)
                self.browser.evaluate(f"document.querySelectorAll('#runs > li > p button')[{number}].click()")
                self.browser.wait_until("byId('status').textContent === texts().copied")
                copied = self.browser.evaluate("navigator.clipboard.readText()")
                self.assertRegex(copied, r"2026-11-22 10:15:\d\d – 10:15:\d\d .+\n10:15:\d\d .+\n")
                for secret in "Li Lei|secret|example|meeting|token|abcd|Users|://|/home|.md#".split("|"):
                    self.assertNotIn(secret, copied)

    def tabbed_to(self, selector: str) -> None:
        """Presses Tab until the element has the focus."""
        for _ in range(60):
            if self.browser.call("selector => document.activeElement.matches(selector)", selector):
                return
            self.browser.press("Tab", 9)
        self.fail(f"Tab does not reach {selector}")

    def test_keyboard_is_enough(self) -> None:
        self.browser.send("Browser.grantPermissions", permissions=["clipboardReadWrite", "clipboardSanitizedWrite"])
        self.browser.send("Page.bringToFront")
        self.browser.call("text => navigator.clipboard.writeText(text)", log_of(run_lines("Client") * 40))
        self.tabbed_to("[data-language=zh]")
        self.browser.press("Enter", 13, "\r")
        self.assertEqual(self.text("h1"), "日志阅读器")
        self.tabbed_to("#file")
        self.tabbed_to("#paste")
        self.browser.press("v", 86, modifiers=CONTROL, commands=["paste"])
        self.browser.wait_until("byId('runs').children.length")
        self.tabbed_to("#only-failed")
        self.tabbed_to("#runs > li summary")
        self.browser.press("Enter", 13, "\r")
        self.browser.wait_until("document.querySelector('.lines')")
        self.tabbed_to("#runs > li > p button")
        self.browser.press("Enter", 13, "\r")
        self.browser.wait_until("byId('status').textContent === texts().copied")
        self.browser.evaluate("byId('more-runs').focus()")
        self.browser.press("Enter", 13, "\r")
        self.assertTrue(self.browser.evaluate("document.activeElement === byId('runs').children[30]"))

    def test_axe_finds_nothing(self) -> None:
        if not AXE.exists():
            self.fail(f"{AXE} is missing; scripts/setup installs it")
        self.browser.send("Page.setBypassCSP", enabled=True)
        self.addCleanup(self.browser.send, "Page.setBypassCSP", enabled=False)
        self.browser.open(PAGE)
        self.browser.evaluate(AXE.read_text(encoding="utf-8"))
        for scheme in ("light", "dark"):
            self.browser.media(scheme)
            for language in ("en", "zh"):
                self.speak(language)
                for content in ("", log_of(run_lines("Client") + run_lines("Client")[:7] + ["<b>unknown</b>"])):
                    if content:
                        self.drop(content)
                        self.unfold()
                    found = self.browser.evaluate(
                        "axe.run().then(({violations, passes}) => [passes.length, violations.map(({id, nodes}) =>"
                        " [id, nodes.map(({html, failureSummary}) => [html, failureSummary])])])"
                    )
                    self.assertGreater(found[0], 15)
                    self.assertEqual(found[1], [], (scheme, language))

    def test_nothing_is_cut_off_where_it_is_narrow(self) -> None:
        self.browser.width(NARROW)
        for language in ("en", "zh"):
            self.speak(language)
            self.drop(log_of(run_lines("Client", arguments=("x" * 500,)) + run_lines("Client")[:7]))
            self.unfold()
            self.assertLessEqual(self.browser.evaluate("document.documentElement.scrollWidth"), NARROW)


if __name__ == "__main__":
    AXE = Path(sys.argv.pop(1))
    unittest.main()
