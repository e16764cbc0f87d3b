# SPDX-License-Identifier: MIT
"""Writes what scripts/lib/tidy.mk needs: the compile commands of the units, and a Makefile with their includes.

    scripts/lib/tidy-units.py COMPILE_COMMANDS.json FOLDER UNIT...
"""

import json
import re
import shutil
import subprocess
import sys
from pathlib import Path

COMMANDS, FOLDER, UNITS = Path(sys.argv[1]), Path(sys.argv[2]), sys.argv[3:]


def write_if_changed(path: Path, text: str) -> None:
    """A file that is written again makes every unit out of date."""
    if not path.exists() or path.read_text(encoding="utf-8") != text:
        path.write_text(text, encoding="utf-8")


def main() -> None:
    """The command line."""
    # A unit of several targets is checked once.
    commands = {entry["file"]: entry for entry in json.loads(COMMANDS.read_text(encoding="utf-8"))}
    paths = [str(Path(unit).resolve()) for unit in UNITS]
    missing = [path for path in paths if path not in commands]
    if missing:
        sys.exit(f"tidy-units: no target has {', '.join(missing)}")
    database = FOLDER / "compile_commands.json"
    FOLDER.mkdir(parents=True, exist_ok=True)
    write_if_changed(database, json.dumps([commands[path] for path in paths], indent=1))

    # Only the folder of LLVM has it under a name without a version.
    scanner = Path(shutil.which("clang-tidy") or "").resolve().with_name("clang-scan-deps")
    includes = subprocess.check_output(
        [scanner, f"--compilation-database={database}", "--format=make"], text=True
    )
    # "OBJECT: UNIT HEADER..." becomes "FOLDER/OBJECT.clean: UNIT HEADER...".
    rules, count = re.subn(r"^(\S+):", rf"{FOLDER}/\1.clean:", includes, flags=re.MULTILINE)
    if count != len(paths):
        sys.exit(f"tidy-units: {count} of {len(paths)} units could be scanned")
    names = re.findall(r"^(\S+):", rules, flags=re.MULTILINE)
    (FOLDER / "units.mk").write_text(f"units := {' '.join(names)}\n{rules}", encoding="utf-8")


if __name__ == "__main__":
    main()
