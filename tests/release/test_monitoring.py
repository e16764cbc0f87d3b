#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""release/monitoring/: what the real mtail counts in the log of the real nginx, and what the real Prometheus, with the
exporters that it asks, makes of it."""

import collections
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import urllib.parse
import urllib.request
from pathlib import Path

from nginxserver import CHECK_HEADERS, NginxServer, check_body
from releasetree import ReleaseTree, package_id
from shippedfiles import behind_load_balancer, changed, shipped
from waiting import free_port, wait_until

SERVE = ""
PUBLISH = ""
MONITORING = Path(__file__).resolve().parents[2] / "release" / "monitoring"
PACKAGE = package_id("2.1.3")
OTHER = "(other)"
HALF_A_MILLISECOND = 0.0005
TOLD_APART = 200  # installed versions
SAMPLE = re.compile(r"^(\w+)(?:\{(.*)\})? (\S+)$", re.MULTILINE)
LABEL = re.compile(r'(\w+)="([^"]*)"')
METRIC = re.compile(r"\b(?:updates|probe|haproxy)_\w+\b|\bup\b")


class Program:
    """A program that runs until the end of the test."""

    def __init__(self, test: unittest.TestCase, port: int, ready: str, *command: object, **environment: str):
        self.address = f"http://127.0.0.1:{port}"
        log = tempfile.TemporaryFile()
        test.addCleanup(log.close)
        self.process = subprocess.Popen(command, stdout=log, stderr=log, env={**os.environ, **environment})
        test.addCleanup(self.process.wait)
        test.addCleanup(self.process.terminate)

        def answers() -> bool:
            if self.process.poll() is not None:
                log.seek(0)
                raise RuntimeError(log.read().decode())
            try:
                self.get(ready)
                return True
            except OSError:
                return False

        wait_until(answers, f"{command[0]}")

    def get(self, path: str) -> str:
        """The body of its answer."""
        with urllib.request.urlopen(self.address + path, timeout=60) as answer:
            return answer.read().decode()


class Mtail(Program):
    """mtail with the shipped program."""

    def __init__(self, test: unittest.TestCase, log: Path):
        self.port = free_port()
        super().__init__(
            test, self.port, "/metrics", "mtail", "--progs", MONITORING / "updates.mtail", "--logs", log,
            "--logtostderr", "--address", "127.0.0.1", "--port", str(self.port), "--poll_interval", "20ms",
        )

    def figures(self) -> dict:
        """Values of our metrics that are not zero, by name and labels: ("updates_checks_total", "none", "", "2.1.3").

        The values of the labels come in the order of their names.
        """
        found = {}
        for name, labels, value in SAMPLE.findall(self.get("/metrics")):
            if name.startswith("updates_") and float(value):
                texts = sorted(label for label in LABEL.findall(labels or "") if label[0] != "prog")
                found[name, *(text for _, text in texts)] = float(value)
        return found


class Counted(unittest.TestCase):
    """A node, and mtail on its log."""

    def setUp(self) -> None:
        room = Path(self.enterContext(tempfile.TemporaryDirectory()))
        tree = ReleaseTree(PUBLISH, room)
        tree.publish("2.1.3", "--share", "100")
        shutil.copytree(tree.folder, tree.folder / "beta", symlinks=True)
        (tree.folder / "packages" / "large").write_bytes(bytes(50_000_000))
        clients = changed(behind_load_balancer("127.0.0.1"), "updates_checks:32m rate=20r/s",
                          "updates_checks:32m rate=1r/m")
        service = changed(shipped("service.conf"), "updates_checks burst=400", "updates_checks burst=2")
        self.server = self.enterContext(
            NginxServer(SERVE, tree.folder, room, clients=clients, service=service)
        )
        self.log = self.server.work / "updates.log"
        self.mtail = Mtail(self, self.log)
        self.lines = 0

    def do(self, *arguments, **more) -> int:
        """The status of a request. Waits for its log line, because nginx may write it later."""
        status = self.server.request(*arguments, **more).status
        self.logged()
        return status

    def logged(self) -> None:
        """Waits for another line of the log."""
        self.lines += 1
        self.server.log_lines(self.lines)

    def check(self, version: str, address: str, path: str = "/check", **headers: str) -> int:
        """A check, with this test as the load balancer."""
        headers = {**CHECK_HEADERS, "X-Forwarded-For": address, **headers}
        return self.do("POST", path, body=check_body(version), headers=headers)

    def wait_for_figures(self, total: int) -> dict:
        """The figures of mtail after it has read TOTAL lines."""
        def are_read() -> bool:
            return f'log_lines_total{{logfile="{self.log}"}} {total}\n' in self.mtail.get("/metrics")
        wait_until(are_read, f"{total} lines read")
        return self.mtail.figures()

    def test_requests_are_counted_for_what_they_are(self) -> None:
        package = f"/packages/{PACKAGE}"
        for version, address in (("1.0.0", "192.0.2.1"), ("2.1.3", "192.0.2.2"), ("2.1.3", "192.0.2.2")):
            self.assertEqual(self.check(version, address), 200)
        self.assertEqual(self.check("2.1.3", "192.0.2.2", "//check?for=all"), 200)
        self.assertEqual(self.check("2.1.3", "192.0.2.2"), 429)
        self.assertEqual(self.check("1.0.0", "192.0.2.3", "/beta/check"), 200)
        self.assertEqual(self.check("", "192.0.2.4"), 200)
        self.assertEqual(self.check("1.0.0", "192.0.2.5", "/gamma/check"), 404)
        self.assertEqual(self.check("1.0.0", "192.0.2.6", **{"Transfer-Encoding": "gzip"}), 501)
        self.assertEqual(self.do("GET", "/check"), 405)
        self.assertEqual(self.check("monitor-3", "198.51.100.3"), 200)
        self.assertEqual(self.check("monitor-3", "192.0.2.7"), 200)

        self.assertEqual(self.do("GET", package), 200)
        tag = self.server.request("GET", package + "?again").headers["ETag"]
        self.logged()
        self.assertEqual(self.do("HEAD", package), 200)
        self.assertEqual(self.do("GET", package, headers={"Range": "bytes=5-9"}), 206)
        self.assertEqual(self.do("GET", package, headers={"If-None-Match": tag}), 304)
        self.assertEqual(self.do("GET", "/beta" + package), 200)
        self.assertEqual(self.do("GET", package.replace("-", "%2D")), 200)
        self.assertEqual(self.do("GET", "/packages/missing.zip"), 404)
        self.assertEqual(self.do("GET", "/elsewhere"), 404)
        connection = self.server.connection()
        connection.request("GET", "/packages/large")
        self.assertEqual(connection.getresponse().status, 200)
        connection.close()
        self.logged()

        figures = self.wait_for_figures(self.lines)
        rest = {key: value for key, value in figures.items() if key[0].endswith("_total") and "bytes" not in key[0]}
        self.assertEqual(rest, {
            ("updates_checks_total", "2.1.3", "", "1.0.0"): 1,
            ("updates_checks_total", "none", "", "2.1.3"): 3,
            ("updates_checks_total", "2.1.3", "beta", "1.0.0"): 1,
            ("updates_checks_total", "2.1.3", "", ""): 1,
            ("updates_checks_total", "2.1.3", "", "monitor-3"): 1,
            ("updates_probe_answers_total", "2.1.3", "monitor-3", ""): 1,
            ("updates_requests_total", "check", "", "2xx"): 6,
            ("updates_requests_total", "check", "", "429"): 1,
            ("updates_requests_total", "check", "", "5xx"): 1,
            ("updates_requests_total", "check", "beta", "2xx"): 1,
            ("updates_requests_total", "check", OTHER, "4xx"): 1,
            ("updates_requests_total", "other", "", "4xx"): 2,
            ("updates_requests_total", "head", "", "2xx"): 1,
            ("updates_requests_total", "package", "", "2xx"): 5,
            ("updates_requests_total", "package", "", "3xx"): 1,
            ("updates_requests_total", "package", "", "4xx"): 1,
            ("updates_requests_total", "package", "beta", "2xx"): 1,
            ("updates_downloads_total", PACKAGE, "", "completed"): 2,
            ("updates_downloads_total", PACKAGE, "", "range"): 1,
            ("updates_downloads_total", PACKAGE, "", "unchanged"): 1,
            ("updates_downloads_total", PACKAGE, "beta", "completed"): 1,
            ("updates_downloads_total", OTHER, "", "completed"): 1,
            ("updates_downloads_total", "large", "", "interrupted"): 1,
        })
        self.check_bytes_and_seconds(figures)

    def check_bytes_and_seconds(self, figures: dict) -> None:
        """Compares the figures with the lines."""
        lines = [line for line in self.server.log_lines(self.lines) if line["address"] != "198.51.100.3"]
        sent = collections.Counter()
        for line in lines:
            product = {"beta": "beta", "gamma": OTHER}.get(line["path"].split("/")[1], "")
            is_package = "/packages/" in line["path"]
            kind = {"GET": "package", "HEAD": "head"}[line["method"]] if is_package else (
                "check" if line["method"] == "POST" else "other")
            sent["updates_bytes_total", kind, product] += line["bytes"]
        self.assertEqual({key: value for key, value in figures.items() if "bytes" in key[0]}, sent)

        answered = [line for line in lines if line["answer"] and "beta" not in line["path"]]
        self.assertEqual(figures["updates_check_seconds_count", ""], len(answered))
        self.assertEqual(figures["updates_check_seconds_bucket", "+Inf", ""], len(answered))
        self.assertAlmostEqual(figures["updates_check_seconds_sum", ""],
                               sum(line["seconds"] + HALF_A_MILLISECOND for line in answered))

    def test_what_is_sent_cannot_make_labels_without_end(self) -> None:
        self.check("1.0.0", "192.0.2.1")
        line = self.log.read_text()
        self.assertEqual(line.count('"1.0.0"'), 1)
        with self.log.open("a") as log:
            for number in range(TOLD_APART):
                log.write(line.replace('"1.0.0"', f'"0.{number}"'))
            log.write(line.replace('"1.0.0"', '"2.1.3"'))
            for number in range(TOLD_APART):
                product = line.replace('"/check"', f'"/product{number}/check"').replace('"200"', '"404"')
                log.write(product.replace('"answer":"2.1.3"', '"answer":""'))
                log.write(line.replace('"POST"', '"GET"').replace('"/check"', f'"/packages/{number}"')
                          .replace('"200"', '"404"').replace('"answer":"2.1.3"', '"answer":""'))
        figures = self.wait_for_figures(2 + 3 * TOLD_APART)
        versions = {key[3] for key in figures if key[0] == "updates_checks_total"}
        # The first ones, the rest together, and whatever was offered.
        self.assertEqual(versions, {"1.0.0", *(f"0.{number}" for number in range(TOLD_APART - 1)), OTHER, "2.1.3"})
        self.assertEqual({key[2:] for key in figures if key[0] == "updates_requests_total"},
                         {("", "2xx"), ("", "4xx"), (OTHER, "4xx")})
        packages = {dict(LABEL.findall(labels))["package"] for name, labels, _ in
                    SAMPLE.findall(self.mtail.get("/metrics")) if name == "updates_downloads_total"}
        self.assertEqual(packages, {OTHER})

    def test_damaged_and_hostile_lines_count_nothing_else(self) -> None:
        forged = b'/x","status":"200","answer":"2.1.3"'
        for request in (b'GET %s HTTP/1.1' % forged, b"GET /\xff\xfe HTTP/1.1", b"nonsense"):
            with self.server.tls_socket() as connection:
                connection.sendall(request + b"\r\nHost: localhost\r\nConnection: close\r\n\r\n")
                self.assertTrue(connection.recv(1))
            self.logged()
        self.check("1.0.0", "192.0.2.1")
        line = self.log.read_text().splitlines()[-1]
        half = len(line) // 2
        with self.log.open("a") as log:
            log.write(f"{line[:half]}\n{line[half:]}\n{line}x\nx{line}\n{line.replace('200', '2e9')}\n\n")
            log.write(re.sub('"address":"[^"]*",', "", line) + "\n")
        figures = self.wait_for_figures(self.lines + 7)
        rest = {key: value for key, value in figures.items() if key[0] in
                ("updates_checks_total", "updates_requests_total", "updates_damaged_lines_total")}
        self.assertEqual(rest, {
            ("updates_checks_total", "2.1.3", "", "1.0.0"): 2,
            ("updates_requests_total", "check", "", "2xx"): 2,
            ("updates_requests_total", "other", OTHER, "4xx"): 3,
            ("updates_damaged_lines_total",): 6,
        })


class Watched(unittest.TestCase):
    """Two nodes with mtail, the blackbox exporter, HAProxy's exporter, and Prometheus, which asks them every second."""

    def setUp(self) -> None:
        self.room = Path(self.enterContext(tempfile.TemporaryDirectory()))
        tree = ReleaseTree(PUBLISH, self.room)
        tree.publish("2.1.3", "--share", "100")
        self.nodes = []
        for name in ("node1", "node2"):
            shutil.copytree(tree.folder, self.room / name, symlinks=True)
            self.nodes.append(self.enterContext(NginxServer(
                SERVE, self.room / name, self.room / f"room-{name}", clients=behind_load_balancer("127.0.0.1"))))
        self.mtails = [Mtail(self, node.work / "updates.log") for node in self.nodes]
        self.exporter = free_port()
        Program(
            self, self.exporter, "/metrics", "prometheus-blackbox-exporter", "--config.file",
            MONITORING / "blackbox.yml", "--web.listen-address", f"127.0.0.1:{self.exporter}",
            SSL_CERT_FILE=str(self.nodes[0].work / "certificate.pem"),
        )
        self.front = free_port()
        haproxy = self.room / "haproxy.cfg"
        haproxy.write_text(HAPROXY.format(port=self.front))
        self.haproxy = Program(self, self.front, "/metrics", "haproxy", "-db", "-f", haproxy, "-C", self.room)
        self.prometheus = self.start_prometheus()

    def start_prometheus(self) -> Program:
        """Starts it with the shipped files, but other machines and times."""
        def fitted(name: str) -> str:
            text = (MONITORING / name).read_text(encoding="utf-8")
            text = re.sub(r"_interval: \d+s", "_interval: 1s", text)
            return text.replace("for: 5m", "for: 1s").replace("[5m]", "[4s]")

        config = fitted("prometheus.yml")
        ports = [node.port for node in self.nodes]
        for old, new in (
            ("'node1.example.com:3903', 'node2.example.com:3903'",
             ", ".join(f"'127.0.0.1:{mtail.port}'" for mtail in self.mtails)),
            ("https://node1.example.com/", f"https://127.0.0.1:{ports[0]}/"),
            ("https://node2.example.com/", f"https://127.0.0.1:{ports[1]}/"),
            ("https://updates.example.com/", f"https://localhost:{ports[0]}/"),
            ("'balancer1.example.com:8405', 'balancer2.example.com:8405'", f"'127.0.0.1:{self.front}'"),
            ("'balancer1.example.com:3903', 'balancer2.example.com:3903'", ""),
            ("'localhost:9093'", ""),
            ("localhost:9115", f"127.0.0.1:{self.exporter}"),
        ):
            config = changed(config, old, new)
        (self.room / "prometheus.yml").write_text(config)
        (self.room / "updates-alerts.yml").write_text(fitted("alerts.yml"))
        port = free_port()
        return Program(
            self, port, "/-/ready", "prometheus", "--config.file", self.room / "prometheus.yml",
            "--storage.tsdb.path", self.room / "data", "--web.listen-address", f"127.0.0.1:{port}",
        )

    def ask(self, expression: str) -> list:
        """The value of an expression."""
        answer = self.prometheus.get("/api/v1/query?" + urllib.parse.urlencode({"query": expression}))
        return json.loads(answer)["data"]["result"]

    def firing(self) -> set:
        """The names of the current alarms."""
        return {row["metric"]["alertname"] for row in self.ask('ALERTS{alertstate="firing"}')}

    def test_figures_reach_the_dashboard_and_the_alarms(self) -> None:
        self.assertEqual(self.nodes[0].check("1.0.0"), "2.1.3")
        self.assertEqual(self.nodes[0].request("GET", f"/packages/{PACKAGE}").status, 200)

        dashboard = json.loads((MONITORING / "dashboard.json").read_text())
        expressions = [target["expr"] for panel in dashboard["panels"] for target in panel["targets"]]
        self.assertGreater(len(expressions), 10)
        rules = (MONITORING / "alerts.yml").read_text()
        names = {name for text in (*expressions, rules) for name in METRIC.findall(text)}
        self.assertGreater(len(names), 8)
        for expression in (*sorted(names), *expressions):
            wait_until(lambda: self.ask(expression), f"a figure for {expression}")

        wait_until(lambda: self.ask('count(up == 1) == 2 + 1 + 1 + 2 * 9'), "all targets")
        wait_until(lambda: self.ask('count(probe_success == 1) == 1 + 2 * 9'), "all answers to the monitor")
        found = json.loads(self.prometheus.get("/api/v1/rules"))["data"]["groups"][0]["rules"]
        self.assertEqual({rule["health"] for rule in found}, {"ok"}, found)

        wait_until(lambda: "UpdatesProbesMissing" not in self.firing(), "checks of the monitor in both logs")
        self.assertNotIn("UpdatesNodesDisagree", self.firing())
        self.assertNotIn("UpdatesNothingOffered", self.firing())
        (self.room / "node2/check/stop").touch()
        wait_until(lambda: "UpdatesNodesDisagree" in self.firing(), "an alarm about the node that stands alone")
        (self.room / "node1/check/stop").touch()
        wait_until(lambda: "UpdatesNothingOffered" in self.firing(), "an alarm that nobody is offered anything")
        wait_until(lambda: "UpdatesNodesDisagree" not in self.firing(), "nodes that agree")


class Files(unittest.TestCase):
    """The checks that the programs offer."""

    def test_prometheus_and_its_exporter_take_their_files(self) -> None:
        room = Path(self.enterContext(tempfile.TemporaryDirectory()))
        shutil.copy(MONITORING / "prometheus.yml", room)
        shutil.copy(MONITORING / "alerts.yml", room / "updates-alerts.yml")
        for command in (
            ("promtool", "check", "config", "--lint-fatal", room / "prometheus.yml"),
            ("promtool", "check", "rules", "--lint-fatal", room / "updates-alerts.yml"),
            ("prometheus-blackbox-exporter", "--config.check", "--config.file", MONITORING / "blackbox.yml"),
        ):
            with self.subTest(command[0]):
                done = subprocess.run(command, capture_output=True, text=True, check=False)
                self.assertEqual(done.returncode, 0, done.stdout + done.stderr)


HAPROXY = """defaults
    mode http
    timeout connect 5s
    timeout client 5s
    timeout server 5s
frontend metrics
    bind 127.0.0.1:{port}
    http-request use-service prometheus-exporter
"""

if __name__ == "__main__":
    SERVE, PUBLISH = sys.argv[1:3]
    del sys.argv[1:3]
    unittest.main()
