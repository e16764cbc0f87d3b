# SPDX-License-Identifier: MIT
"""Prometheus with release/monitoring/, next to the fleet: which alert reports which failure."""

import json
import re
import time
import urllib.error
import urllib.parse
import urllib.request

from fleet import LOGGED, answers, changed, wait_until

# The rules look at minutes to days and wait for minutes; these replacements shorten all that to seconds.
SHORTENED = ((r"for: 5m", "for: 2s"), (r"\[5m\]", "[5s]"), (r"\[1h\]", "[5s]"), (r"\[1d\]", "[10m]"))
INTERVALS = (("15s", "1s"), ("60s", "2s"))


class Monitoring:
    """Prometheus, mtail on the log of each node, and the black box exporter."""

    def __init__(self, fleet):
        self.fleet = fleet
        self.folder = fleet.work / "monitoring"
        self.port, self.exporter = fleet.ports.take(), fleet.ports.take()

    def start(self) -> None:
        """Returns once Prometheus has figures of everything and no alert fires."""
        self.folder.mkdir()
        nodes = [self.start_mtail(node.name, node.log) for node in self.fleet.nodes]
        cache = self.start_mtail("cache", *(self.fleet.packages_log(kind) for kind in LOGGED))
        self.start_exporter()
        self.start_prometheus(nodes, cache)
        wait_until(lambda: self.query("up") and not self.query("up == 0"), "figures of everything")
        self.settle()

    def start_mtail(self, machine: str, *logs) -> int:
        """Starts mtail on the logs of a machine; returns the port that it answers on."""
        port = self.fleet.ports.take()
        program = self.fleet.run(
            f"mtail-{machine}", "mtail",
            "-progs", self.fleet.project / "release/monitoring/updates.mtail",
            "-logs", ",".join(map(str, logs)), "-address", "127.0.0.1", "-port", port, "-logtostderr")
        program.wait_for(lambda: answers(port), "mtail")
        return port

    def start_exporter(self) -> None:
        """The black box exporter sends requests to the nodes and the load balancer."""
        file = self.folder / "blackbox.yml"
        file.write_text(changed(
            self.fleet.shipped("monitoring/blackbox.yml"),
            ("  address:\n    prober: http\n",
             "  address:\n    prober: http\n"
             f"    http: {{tls_config: {{ca_file: {self.fleet.certificate}}}}}\n")))
        program = self.fleet.run(
            "blackbox", "prometheus-blackbox-exporter", f"--config.file={file}",
            f"--web.listen-address=127.0.0.1:{self.exporter}")
        program.wait_for(lambda: answers(self.exporter), "the black box exporter")

    def start_prometheus(self, nodes: list, cache: int) -> None:
        """Starts it with the shipped configuration, for the machines of this fleet."""
        fleet = self.fleet
        targets = {
            "updates-nodes": [f"127.0.0.1:{port}" for port in nodes],
            "updates-caches": [f"127.0.0.1:{cache}"],
            "updates-balancers": [f"127.0.0.1:{fleet.metrics}"],
            "updates-address": [f"https://127.0.0.1:{fleet.front}/health"],
            "updates-decisions": [f"https://127.0.0.1:{node.port}/check" for node in fleet.nodes],
        }
        text = changed(
            fleet.shipped("monitoring/prometheus.yml"),
            ("'localhost:9115'", f"'127.0.0.1:{self.exporter}'"), ("['localhost:9093']", "[]"),
            *((f"_interval: {shipped}", f"_interval: {short}") for shipped, short in INTERVALS))
        head, *jobs = re.split(r"(?=- job_name: )", text)
        for job in jobs:
            name = re.match(r"- job_name: (\S+)", job)[1]
            head += re.sub(r"\['[^]]*'\]", json.dumps(targets[name]), job)
        file = self.folder / "prometheus.yml"
        file.write_text(head)
        rules = fleet.shipped("monitoring/alerts.yml")
        for shipped, short in SHORTENED:
            rules = re.sub(shipped, short, rules)
        (self.folder / "updates-alerts.yml").write_text(rules)
        program = fleet.run(
            "prometheus", "prometheus", f"--config.file={file}", "--log.level=warn",
            f"--storage.tsdb.path={self.folder}/data", f"--web.listen-address=127.0.0.1:{self.port}")
        program.wait_for(self.is_ready, "prometheus")

    def is_ready(self) -> bool:
        """Whether Prometheus answers queries."""
        try:
            with urllib.request.urlopen(f"http://127.0.0.1:{self.port}/-/ready", timeout=20):
                return True
        except urllib.error.URLError:
            return False

    def query(self, words: str) -> list:
        """The answer of Prometheus to an instant query."""
        address = f"http://127.0.0.1:{self.port}/api/v1/query?" + urllib.parse.urlencode({"query": words})
        with urllib.request.urlopen(address, timeout=20) as answer:
            return json.load(answer)["data"]["result"]

    def value(self, words: str) -> float:
        """The answer to a query for one number; 0 without one."""
        found = self.query(words)
        return float(found[0]["value"][1]) if found else 0.0

    def fired_since(self, since: float) -> list:
        """The names of the alerts that have fired since then."""
        seconds = max(1, round(time.time() - since))
        found = self.query('count by (alertname) (count_over_time('
                           f'ALERTS{{alertstate="firing"}}[{seconds}s]))')
        return sorted(series["metric"]["alertname"] for series in found)

    def wait_for(self, since: float, *alerts: str) -> str:
        """Waits until these alerts have fired since then; returns all that have."""
        wait_until(lambda: set(alerts) <= set(self.fired_since(since)), f"alerts: {', '.join(alerts)}")
        return ", ".join(self.fired_since(since))

    def told_since(self, since: float) -> str:
        """The alerts that have fired since then, for a step that need not cause any."""
        return ", ".join(self.fired_since(since)) or "none"

    def firing(self) -> list:
        """The labels of each alert that fires now."""
        return [series["metric"] for series in self.query('ALERTS{alertstate="firing"}')]

    def settle(self) -> None:
        """Waits until no alert fires any more."""
        wait_until(lambda: not self.firing(), lambda: f"an end of {self.firing()}")
