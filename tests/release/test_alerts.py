#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The alert rules of release/monitoring/: promtool evaluates them over figures that are bad, and over good ones."""

import json
import re
import subprocess
import tempfile
import unittest
from dataclasses import dataclass
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
DOCUMENT = PROJECT / "docs" / "service.md"
MONITORING = PROJECT / "release" / "monitoring"
RULES = MONITORING / "alerts.yml"
ALERTS = re.findall(r"^ *- alert: (\w+)$", RULES.read_text(encoding="utf-8"), re.MULTILINE)

WEEK_MINUTES = 7 * 24 * 60


@dataclass
class Case:
    """Values of series in the notation of promtool, and the alarms of one rule."""

    what: str
    alert: str
    series: dict
    fires: tuple = ()  # the labels of each alarm, without the name and the severity
    minute: int = 40
    interval: int = 1


def checks(answer: str = "none", **labels: str) -> str:
    """The series of answered checks."""
    return series("updates_checks_total", answer=answer, version="2.1.3", **labels)


def requests(status: str, kind: str = "check", **labels: str) -> str:
    """The series of requests."""
    return series("updates_requests_total", status=status, kind=kind, **labels)


def downloads(result: str, package: str = "Client-2.2.0.zip") -> str:
    """The series of downloads."""
    return series("updates_downloads_total", result=result, package=package)


def probes(node: str, answer: str, probe: str = "monitor-1", **labels: str) -> str:
    """The series of a check of the monitor itself."""
    return series("updates_probe_answers_total", instance=node, answer=answer, probe=probe, **labels)


def front(code: str) -> str:
    """The series of answers of a load balancer."""
    return series("haproxy_frontend_http_responses_total", proxy="updates", code=code)


def series(name: str, **labels: str) -> str:
    """A series in PromQL."""
    return name + "{" + ",".join(f'{label}="{text}"' for label, text in labels.items()) + "}"


def expires(days: int) -> str:
    """Values of a certificate that expires DAYS after the 40th minute."""
    moment = 40 * 60 + days * 24 * 3600
    return f"{moment}x60"


STEADY = "0+60x60"  # one a second
STOPPED = "0+60x20 1200x40"  # one a second, until the 20th minute
SILENT = "1200x60"
ADDRESS = series("probe_success", job="updates-address", instance="https://updates.example.com/health")
NODE = series("probe_success", job="updates-decisions", instance="https://node1/check", module="decision-1")
OTHER_MODULE = NODE.replace("decision-1", "decision-2")
NODE_UP = series("up", job="updates-nodes", instance="node1")
EXPIRY = series("probe_ssl_earliest_cert_expiry", instance="https://updates.example.com/health")

CASES = (
    Case("one product is asked for, the other is not any more", "UpdatesNoChecks",
         {checks(product="beta"): STOPPED, checks(): STEADY}, ({"product": "beta"},)),
    Case("nothing was ever counted", "UpdatesNoChecks", {NODE_UP: "1x60"}, ({},)),
    Case("one node of two is not asked any more", "UpdatesNoChecks",
         {checks(instance="node1"): STOPPED, checks(instance="node2"): STEADY}),
    Case("checks stopped only now", "UpdatesNoChecks", {checks(): STOPPED}, minute=29),
    Case("checks stopped a while ago", "UpdatesNoChecks", {checks(): STOPPED}, ({},), minute=31),

    Case("less than half of last week", "UpdatesFewChecks", {checks(): "0+100x335 33500+40x20"}, ({},),
         minute=WEEK_MINUTES + 180, interval=30),
    Case("a little more than half of last week", "UpdatesFewChecks", {checks(): "0+100x335 33500+60x20"},
         minute=WEEK_MINUTES + 180, interval=30),

    Case("the address does not answer", "UpdatesAddressDown", {ADDRESS: "0x60"},
         ({"job": "updates-address", "instance": "https://updates.example.com/health"},)),
    Case("the address answers", "UpdatesAddressDown", {ADDRESS: "1x60", NODE: "0x60"}),

    Case("a node answers none of the checks", "UpdatesNodeDown", {NODE: "0x60", OTHER_MODULE: "0x60"},
         ({"instance": "https://node1/check"},)),
    Case("a node answers one of the checks", "UpdatesNodeDown",
         {NODE: "0x60", OTHER_MODULE: "1x60", ADDRESS: "0x60"}),

    Case("two of a hundred", "UpdatesServerErrors", {requests("2xx"): "0+98x60", requests("5xx"): "0+2x60"}, ({},)),
    Case("one of two hundred", "UpdatesServerErrors", {requests("2xx"): "0+199x60", requests("5xx"): "0+1x60"}),
    Case("two of a hundred, until a while ago", "UpdatesServerErrors",
         {requests("2xx"): STEADY, requests("5xx"): "0+2x20 40x40"}),

    Case("two of a hundred at the front", "UpdatesFrontErrors", {front("2xx"): "0+98x60", front("5xx"): "0+2x60"},
         ({"proxy": "updates"},)),
    Case("one of two hundred at the front", "UpdatesFrontErrors",
         {front("2xx"): "0+199x60", front("5xx"): "0+1x60"}),

    Case("one node of two turns away a tenth", "UpdatesTooManyRequests",
         {requests("2xx", instance="node1"): "0+90x60", requests("429", instance="node1"): "0+10x60",
          requests("2xx", instance="node2"): STEADY}, ({"instance": "node1"},)),
    Case("a twenty-fifth is turned away", "UpdatesTooManyRequests",
         {requests("2xx", instance="node1"): "0+96x60", requests("429", instance="node1"): "0+4x60"}),

    Case("offers stopped", "UpdatesNothingOffered",
         {probes("node1", "2.2.0"): STOPPED, probes("node1", "none"): "0x20 0+1x40"}, ({},)),
    Case("offers stopped, and another product is offered", "UpdatesNothingOffered",
         {probes("node1", "2.2.0"): STOPPED, probes("node1", "none"): "0x20 0+1x40",
          probes("node1", "2.2.0", product="beta"): STEADY}, ({},)),
    Case("another release took its place", "UpdatesNothingOffered",
         {probes("node1", "2.2.0"): STOPPED, probes("node1", "2.2.1"): "0x20 0+1x40"}),
    Case("some of the checks are in the share", "UpdatesNothingOffered",
         {probes("node1", "none"): STEADY, probes("node1", "2.2.0", "monitor-2"): STEADY}),
    Case("offers stopped on another day", "UpdatesNothingOffered",
         {probes("node1", "2.2.0"): "0+60x10 600x800", probes("node1", "none"): "0x10 0+1x800"},
         minute=1500, interval=2),
    Case("nothing was ever offered", "UpdatesNothingOffered", {probes("node1", "none"): STEADY}),
    Case("the monitor asks no more", "UpdatesNothingOffered",
         {probes("node1", "2.2.0"): STOPPED, probes("node1", "none"): SILENT}),

    Case("one node of three is behind", "UpdatesNodesDisagree",
         {probes("node1", "2.2.0"): STEADY, probes("node2", "2.2.0"): STEADY, probes("node3", "2.1.3"): STEADY},
         ({},)),
    Case("one of the checks is decided differently", "UpdatesNodesDisagree",
         {probes("node1", "none"): STEADY, probes("node2", "none"): STEADY,
          probes("node1", "2.2.0", "monitor-2"): STEADY, probes("node2", "2.1.3", "monitor-2"): STEADY}, ({},)),
    Case("the checks differ, the nodes do not", "UpdatesNodesDisagree",
         {probes("node1", "2.2.0"): STEADY, probes("node2", "2.2.0"): STEADY,
          probes("node1", "none", "monitor-2"): STEADY, probes("node2", "none", "monitor-2"): STEADY}),
    Case("a roll-out reached all nodes, some minutes apart", "UpdatesNodesDisagree",
         {probes("node1", "2.1.3"): "0+60x36 2160x20", probes("node1", "2.2.0"): "0x36 0+60x20",
          probes("node2", "2.1.3"): "0+60x39 2340x20", probes("node2", "2.2.0"): "0x39 0+60x20"}),
    Case("the products differ", "UpdatesNodesDisagree",
         {probes("node1", "2.2.0"): STEADY, probes("node1", "2.3.0", product="beta"): STEADY}),
    Case("a node that is down disagrees with nobody", "UpdatesNodesDisagree",
         {probes("node1", "2.2.0"): STEADY, probes("node2", "2.1.3"): SILENT}),

    Case("the monitor's checks are not in a log", "UpdatesProbesMissing",
         {NODE_UP: "1x60", probes("node1", "none"): SILENT, probes("node2", "none"): STEADY},
         ({"job": "updates-nodes", "instance": "node1"},)),
    Case("the monitor's checks are in the log", "UpdatesProbesMissing",
         {NODE_UP: "1x60", probes("node1", "none"): STEADY}),

    Case("a fifth is interrupted", "UpdatesDownloadsInterrupted",
         {downloads("completed"): "0+4x60", downloads("interrupted"): "0+1x60"}, ({"package": "Client-2.2.0.zip"},)),
    Case("a fifth is interrupted, among many parts", "UpdatesDownloadsInterrupted",
         {downloads("completed"): "0+4x60", downloads("interrupted"): "0+1x60", downloads("range"): "0+600x60"},
         ({"package": "Client-2.2.0.zip"},)),
    Case("a twentieth is interrupted", "UpdatesDownloadsInterrupted",
         {downloads("completed"): "0+19x60", downloads("interrupted"): "0+1x60"}),
    Case("a fifth is interrupted, of hardly any", "UpdatesDownloadsInterrupted",
         {downloads("completed"): "0+4x3 12x60", downloads("interrupted"): "0+1x3 3x60"}),
    Case("parts are not interrupted downloads", "UpdatesDownloadsInterrupted",
         {downloads("completed"): STEADY, downloads("interrupted"): "0x60", downloads("range"): "0+600x60"}),

    Case("a tenth of the packages is missing", "UpdatesPackagesMissing",
         {requests("2xx", "package"): "0+9x60", requests("4xx", "package"): "0+1x60"}, ({},)),
    Case("a twenty-fifth is refused", "UpdatesPackagesMissing",
         {requests("2xx", "package"): "0+24x60", requests("4xx", "package"): "0+1x60"}),
    Case("somebody tries addresses", "UpdatesPackagesMissing",
         {requests("2xx", "package"): STEADY, requests("4xx", "package", product="(other)"): "0+900x60"}),

    Case("thirteen days are left", "UpdatesCertificateExpires", {EXPIRY: expires(13)},
         ({"instance": "https://updates.example.com/health"},)),
    Case("it has expired", "UpdatesCertificateExpires", {EXPIRY: expires(-1)},
         ({"instance": "https://updates.example.com/health"},)),
    Case("fifteen days are left", "UpdatesCertificateExpires", {EXPIRY: expires(15)}),

    Case("mtail is down", "UpdatesFiguresMissing", {NODE_UP: "0x60"},
         ({"job": "updates-nodes", "instance": "node1"},)),
    Case("another job is down", "UpdatesFiguresMissing",
         {NODE_UP: "1x60", series("up", job="others", instance="node1"): "0x60"}),
)


class Alerts(unittest.TestCase):
    """Each rule in alerts.yml."""

    def test_every_rule_has_a_bad_and_a_good_case(self) -> None:
        self.assertGreater(len(ALERTS), 10)
        self.assertEqual({case.alert for case in CASES if case.fires}, set(ALERTS))
        self.assertEqual({case.alert for case in CASES if not case.fires}, set(ALERTS))

    def test_the_document_has_every_rule(self) -> None:
        rows = re.findall(r"^\| `(Updates\w+)` \|", DOCUMENT.read_text(encoding="utf-8"), re.MULTILINE)
        self.assertEqual(rows, ALERTS)

    def test_every_rule_says_how_bad_it_is_and_what_to_do(self) -> None:
        for rule in re.split(r"^ *- alert: ", RULES.read_text(encoding="utf-8"), flags=re.MULTILINE)[1:]:
            with self.subTest(rule.split()[0]):
                self.assertRegex(rule, r"\n +for: 5m\n +labels: \{severity: (critical|warning)\}\n")
                self.assertRegex(rule, r"\n +summary: \S.+\n +description: >-\n +\S")

    def test_rules_fire_when_they_should_and_not_otherwise(self) -> None:
        with tempfile.TemporaryDirectory() as room:
            files = []
            for case in CASES:
                files.append(Path(room) / f"{len(files)}.json")
                files[-1].write_text(json.dumps(promtool_test(case)))
            done = subprocess.run(["promtool", "test", "rules", *files], capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertEqual(done.stdout.count("SUCCESS"), len(CASES))


def promtool_test(case: Case) -> dict:
    """A case in the format of promtool. Prometheus keeps its alarms in ALERTS."""
    severity = re.search(case.alert + r"\n.*?severity: (\w+)", RULES.read_text(encoding="utf-8"), re.DOTALL).group(1)
    alarm = {"alertname": case.alert, "alertstate": "firing"}
    samples = [
        {"labels": series("ALERTS", **alarm, severity=severity, **labels), "value": 1} for labels in case.fires
    ]
    query = {"expr": series("ALERTS", **alarm), "eval_time": f"{case.minute}m", "exp_samples": samples}
    return {
        "rule_files": [str(RULES)],
        "evaluation_interval": f"{case.interval}m",
        "tests": [{
            "name": f"{case.alert}: {case.what}",
            "interval": f"{case.interval}m",
            "input_series": [{"series": name, "values": values} for name, values in case.series.items()],
            "promql_expr_test": [query],
        }],
    }


if __name__ == "__main__":
    unittest.main()
