#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""scripts/capacity: known figures give known tables, and the document has the tables of the figures that it names."""

import json
import subprocess
import tempfile
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
COMMAND = PROJECT / "scripts" / "capacity"
FIGURES = PROJECT / "docs" / "figures" / "fleet.json"
DOCUMENT = PROJECT / "docs" / "service.md"

# 100,000 clients ask 23.148 times a second at the peak, 100 million 23,148 times.
KNOWN = {
    "checks_per_second_per_node": 1000,
    "handshakes_per_second_front": 2000,
    "kept_checks_per_second_per_node": 20_000,
    "package_bytes_per_second": 500_000_000,
    "bytes_per_check": 2000,
}


def cells(text: str, first: str) -> list:
    """The rows that begin so, cell by cell."""
    rows = [line.strip("| \n").split(" | ") for line in text.splitlines()]
    return [row[1:] for row in rows if row[0] == first]


class Capacity(unittest.TestCase):
    """The tables."""

    def tables(self, figures: dict) -> str:
        """What the script prints."""
        with tempfile.NamedTemporaryFile("w", suffix=".json") as file:
            json.dump(figures, file)
            file.flush()
            done = subprocess.run([COMMAND, file.name], capture_output=True, text=True, check=True)
        return done.stdout

    def test_known_figures_give_known_tables(self) -> None:
        text = self.tables(KNOWN)
        self.assertEqual(cells(text, "100,000"), [
            ["23/s", "1 + 1", "1 + 1", "1 + 1", "370 Kbit/s", "400 MB", "47 MB", "6 TB", "11 Gbit/s"],
            ["9 %", "90 %", "100 %"],
        ])
        # 23,148 / 500 = 46.3; / 1,000 = 23.1; / 10,000 = 2.3
        self.assertEqual(cells(text, "100,000,000"), [
            ["23,000/s", "47 + 1", "24 + 1", "3 + 1", "370 Mbit/s", "400 GB", "47 GB", "6 PB", "11,000 Gbit/s"],
            ["less than 0.1 %", "less than 0.1 %", "0.9 %"],
        ])
        self.assertEqual(cells(text, "Caches that fill the link"), [["1 + 1", "5 + 1", "50 + 1"]])

    def test_twice_the_rate_needs_half_the_machines(self) -> None:
        text = self.tables({**KNOWN, "checks_per_second_per_node": 2000})
        self.assertEqual(cells(text, "100,000,000")[0][1:4], ["24 + 1", "24 + 1", "3 + 1"])

    def test_the_document_has_the_tables_of_its_figures(self) -> None:
        text = DOCUMENT.read_text(encoding="utf-8")
        shown = text.split("<!-- capacity: begin -->\n")[1].split("<!-- capacity: end -->\n")[0]
        self.assertIn(f"`{FIGURES.relative_to(PROJECT)}`", text)
        self.assertEqual(shown, self.tables(json.loads(FIGURES.read_text())))


if __name__ == "__main__":
    unittest.main()
