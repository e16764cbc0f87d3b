# SPDX-License-Identifier: MIT
"""Prints the rows that the fault tests left in a folder as one table, or puts it into a document."""

import sys
import textwrap
from pathlib import Path
from typing import List

HEADINGS = ["Fault", "What the user saw", "What was left on the disk", "Client started"]
WIDTHS = [38, 34, 42, 14]
NOTE = "What can be done: "
BEGIN, END = "<!-- faults: begin -->\n", "<!-- faults: end -->\n"


def read_rows(folder: Path) -> List[List[str]]:
    """All rows, program by program; each has the four cells and a note, which may be empty."""
    rows = []
    for path in sorted(folder.glob("*.tsv")):
        for line in path.read_text(encoding="utf-8").splitlines():
            cells = line.split("\t")
            if len(cells) != len(HEADINGS) + 1:
                sys.exit(f"print-faults: {path.name} has a row of {len(cells)} cells: {line}")
            rows.append(cells)
    return rows


def print_text(rows: List[List[str]]) -> None:
    """For a terminal: cells wrapped, a rule between rows."""
    rule = "+".join("-" * (width + 2) for width in WIDTHS)
    for cells in [HEADINGS + [""]] + rows:
        wrapped = [textwrap.wrap(cell, width) for cell, width in zip(cells, WIDTHS)]
        for line in range(max(map(len, wrapped))):
            texts = [cell[line] if line < len(cell) else "" for cell in wrapped]
            print(" | ".join(f" {t:<{w}}" for t, w in zip(texts, WIDTHS)).rstrip())
        for line in textwrap.wrap(NOTE + cells[-1] if cells[-1] else "", sum(WIDTHS)):
            print("  " + line)
        print(rule)


def markdown(rows: List[List[str]]) -> str:
    """For a document: the note behind the cell that it explains."""
    lines = ["| " + " | ".join(HEADINGS) + " |", "|---" * len(HEADINGS) + "|"]
    for cells in rows:
        *shown, note = [cell.replace("|", "\\|") for cell in cells]
        if note:
            shown[-1] += f"; {note}"
        lines.append("| " + " | ".join(shown) + " |")
    return "\n".join(lines) + "\n"


def write_into(document: Path, rows: List[List[str]]) -> None:
    """In the place of what stands between the marks."""
    text = document.read_text(encoding="utf-8")
    if text.count(BEGIN) != 1 or text.count(END) != 1:
        sys.exit(f"print-faults: {document} has no place for the table")
    before, rest = text.split(BEGIN)
    document.write_text(
        before + BEGIN + markdown(rows) + END + rest.split(END)[1], encoding="utf-8"
    )


def main() -> None:
    """print-faults.py FOLDER [DOCUMENT]"""
    folder = Path(sys.argv[1])
    rows = read_rows(folder)
    if not rows:
        sys.exit(f"print-faults: no rows in {folder}")
    if len(sys.argv) > 2:
        write_into(Path(sys.argv[2]), rows)
        return
    print_text(rows)
    print(f"{len(rows)} faults; after each of them the next run installed an update.")


if __name__ == "__main__":
    main()
