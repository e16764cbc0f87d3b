#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Prints a table of the measurements of the programs in bench/, from their lines of JSON on the standard input.

    scripts/lib/speed.py                     prints the table
    scripts/lib/speed.py --document FILE     also writes it into FILE, with charts in the folder images/ next to FILE
"""

import argparse
import json
import os
import pathlib
import platform
import statistics
import subprocess
import sys

from chart import line_chart

BEGIN, END = "<!-- speed: begin -->\n", "<!-- speed: end -->\n"
HEAD = ["Figure", "Ours", "Compared with", "Ratio", "Bound"]

CHARTS = {
    "download": ("Download over TLS", "size of the package in MiB", "ms"),
    "memory": ("Most memory of a whole update", "size of the package in MiB", "MiB"),
    "extraction": ("Extraction of small files", "entries", "ms"),
}


def number(value):
    digits = 0 if abs(value) >= 100 else 1 if abs(value) >= 10 else 2
    return f"{value:,.{digits}f}"


def compared_with_bound(figure):
    """The value that the bound limits, as (value, its text, the bound's text); None without a value."""
    ours, bound, unit = figure["ours"], figure["bound"], figure["unit"]
    if figure["judged"] == "worst":
        return max(ours), f"worst {number(max(ours))} {unit}", f"worst {bound:g} {unit}"
    if figure["judged"] == "difference":
        value = statistics.median(ours) - statistics.median(figure["theirs"])
        # Rounded as it is printed, so that a rounding error does not count as a difference.
        return round(value, 2), f"{value:+,.2f} {unit}", f"+{bound:g} {unit}"
    if figure["theirs"] and statistics.median(figure["theirs"]) > 0:
        value = statistics.median(ours) / statistics.median(figure["theirs"])
        return value, f"{value:.2f}", f"{bound:g}" if figure["judged"] else ""
    return None


def row(figure):
    unit = figure["unit"]
    compared = ""
    if figure["theirs"]:
        compared = f"{figure['comparedWith']}: {number(statistics.median(figure['theirs']))} {unit}"
    value, text, bound = compared_with_bound(figure) or (0, "", "")
    if figure["judged"]:
        bound += ": kept" if value <= figure["bound"] else ": **missed**"
    return [figure["name"], f"{number(statistics.median(figure['ours']))} {unit}", compared, text, bound]


def plain_table(rows):
    widths = [max(len(line[column]) for line in rows) for column in range(len(HEAD))]
    return "".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip() + "\n" for line in rows)


def markdown_table(rows):
    lines = [f"| {' | '.join(line)} |" for line in rows]
    return "\n".join([lines[0], "|---|---:|---|---:|---|", *lines[1:]]) + "\n"


def processor():
    for line in pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8").splitlines():
        if line.startswith("model name"):
            return line.partition(":")[2].strip()
    return platform.machine()


def machine():
    qt = subprocess.run(
        ["dpkg-query", "-W", "-f", "${Version}", "libqt5core5a"], capture_output=True, text=True, check=False
    ).stdout.partition("+")[0]
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / 2**30
    return f"{processor()}, {os.cpu_count()} processors, {memory:.0f} GiB; Linux {platform.release()}; Qt {qt}."


def charts(figures):
    """The charts with at least two measured points: {name: SVG}."""
    made = {}
    for name, (title, x_name, unit) in CHARTS.items():
        points = [figure for figure in figures if figure["chart"] == name]
        if len(points) < 2:
            continue
        lines = [("this program", [(figure["x"], statistics.median(figure["ours"])) for figure in points])]
        if all(figure["theirs"] for figure in points):
            theirs = [(figure["x"], statistics.median(figure["theirs"])) for figure in points]
            lines.append((points[0]["comparedWith"], theirs))
        made[name] = line_chart(title, x_name, unit, lines)
    return made


def write_document(path, figures, rows):
    """Replaces the text between the marks."""
    document = path.read_text(encoding="utf-8")
    if document.count(BEGIN) != 1 or document.count(END) != 1:
        sys.exit(f"speed.py: {path} has no place for the table")
    images = path.parent / "images"
    images.mkdir(exist_ok=True)
    text = [machine() + "\n", markdown_table(rows)]
    for name, svg in charts(figures).items():
        image = images / f"speed-{name}.svg"
        image.write_text(svg, encoding="utf-8")
        text.append(f"![{CHARTS[name][0]}](images/{image.name})\n")
    before, rest = document.split(BEGIN)
    path.write_text(before + BEGIN + "\n".join(text) + END + rest.split(END)[1], encoding="utf-8")


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--document", type=pathlib.Path)
    options = parser.parse_args()
    figures = [json.loads(line) for line in sys.stdin if line.startswith("{")]
    if not figures:
        sys.exit("speed.py: nothing was measured")
    rows = [HEAD, *map(row, figures)]
    print(plain_table(rows).replace("**", ""), end="")
    if options.document:
        write_document(options.document, figures, rows)


if __name__ == "__main__":
    main()
