#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The list of components in the Windows package names what the linker has put into the programs.

test_sbom.py [BUILD QT PROGRAM.exe...]: with a Windows build, its programs are compared as well.
"""

import json
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from typing import List, Set

PROJECT = Path(__file__).resolve().parents[2]
SBOM = PROJECT / "scripts" / "lib" / "sbom.py"
BUILD: List[str] = []
OWN = {"libupdater.a", "libcontract.a", "libpublisher.a"}

# Every program begins so.
MAP = """Archive member included to satisfy reference by file (symbol)

libupdater.a(main.cpp.obj)    CMakeFiles/AutoUpdate.dir/app/main.cpp.obj (main)
/opt/qt/lib/libQt5Core.a(qstring.o)
                              libupdater.a(main.cpp.obj) (QString)
/opt/qt/lib/libQt5Core.a(inflate.o)
                              /opt/qt/lib/libQt5Core.a(qstring.o) (inflate)
/usr/lib/gcc/x86_64-w64-mingw32/12-posix/../../../../x86_64-w64-mingw32/lib/libkernel32.a(d001.o)
                              libupdater.a(main.cpp.obj) (__imp_Sleep)
@MORE@
Discarded input sections

 .text          0x0000000000000000        0x0 /opt/nowhere/libdiscarded.a(never.o)

Linker script and memory map

LOAD /usr/lib/gcc/x86_64-w64-mingw32/12-posix/../../../../x86_64-w64-mingw32/lib/crt2.o
LOAD /usr/lib/gcc/x86_64-w64-mingw32/12-posix/crtbegin.o
LOAD CMakeFiles/AutoUpdate.dir/app/main.cpp.obj
LOAD libupdater.a
LOAD /opt/nowhere/libunused.a
"""


def contributing(link_map: str) -> Set[str]:
    """The archives of which at least one byte is in the program, from the table of its memory."""
    memory = link_map.split("Linker script and memory map", 1)[1]
    placed = re.findall(r"0x[0-9a-f]+ +0x([0-9a-f]+) (\S[^()\n]*\.a)\([^()\n]+\)$", memory, re.MULTILINE)
    return {path.rpartition("/")[2] for size, path in placed if int(size, 16) > 0}


class Sbom(unittest.TestCase):
    """Programs and their maps, invented or built."""

    def setUp(self) -> None:
        self.room = Path(self.enterContext(tempfile.TemporaryDirectory()))
        (self.room / "mkspecs").mkdir()
        (self.room / "mkspecs" / "qconfig.pri").write_text("QT_VERSION = 5.15.8\n", encoding="utf-8")
        self.program = self.room / "AutoUpdate.exe"
        self.program.write_bytes(b"MZ")

    def make(self, more: str = "") -> subprocess.CompletedProcess:
        """The document of a program with these lines more in its map."""
        (self.room / "AutoUpdate.exe.map").write_text(MAP.replace("@MORE@", more), encoding="utf-8")
        (self.room / "bin").mkdir(exist_ok=True)
        query = self.room / "bin" / "dpkg-query"
        query.write_text("#!/bin/sh\nfor package; do :; done; printf '1-%s' \"$package\"\n", encoding="utf-8")
        query.chmod(0o755)
        return subprocess.run(
            [SBOM, "--build", self.room, "--qt", self.room, "--version", "1.2.3", self.program],
            capture_output=True, text=True, check=False, env={"PATH": f"{self.room}/bin:/usr/bin:/bin"})

    def linked(self, document: dict, program: str) -> dict:
        """The libraries of a program by the name of their component."""
        names = {package["SPDXID"]: package["name"] for package in document["packages"]}
        return {
            names[each["relatedSpdxElement"]]: set(each["comment"].split())
            for each in document["relationships"]
            if each["relationshipType"] == "STATIC_LINK" and each["spdxElementId"] == f"SPDXRef-{program}"
        }

    def test_components_are_those_that_are_linked(self) -> None:
        document = json.loads(self.make().stdout)
        self.assertEqual(self.linked(document, "AutoUpdate.exe"), {
            "Qt": {"libQt5Core.a"},
            "zlib in Qt": {"libQt5Core.a"},
            "GCC runtime libraries": {"crtbegin.o"},
            "mingw-w64 runtime": {"crt2.o", "libkernel32.a"},
        })
        versions = {package["name"]: package.get("versionInfo") for package in document["packages"]}
        self.assertEqual(versions["AutoUpdate"], "1.2.3")
        self.assertEqual(versions["Qt"], "5.15.8")
        self.assertEqual(versions["mingw-w64 runtime"], "1-mingw-w64-x86-64-dev")

    def test_another_library_is_another_component(self) -> None:
        document = json.loads(self.make("/usr/x86_64-w64-mingw32/lib/libz.a(inflate.o)").stdout)
        self.assertEqual(self.linked(document, "AutoUpdate.exe")["zlib"], {"libz.a"})

    def test_a_library_that_nobody_has_named_fails(self) -> None:
        done = self.make("/opt/other/libother.a(code.o)")
        self.assertEqual(done.returncode, 1)
        self.assertIn("/opt/other/libother.a(code.o)", done.stderr)

    def test_the_same_programs_have_the_same_document(self) -> None:
        first = self.make().stdout
        self.assertEqual(self.make().stdout, first)
        self.program.write_bytes(b"MZ of another build")
        self.assertNotEqual(json.loads(self.make().stdout)["documentNamespace"],
                            json.loads(first)["documentNamespace"])

    def test_the_linker_writes_maps_that_are_understood(self) -> None:
        for name, text in (("used", "int used(void) { return 1; }"), ("unused", "int unused(void) { return 1; }"),
                           ("program", "int used(void); int main(void) { return used(); }")):
            (self.room / f"{name}.c").write_text(text + "\n", encoding="utf-8")
            subprocess.run(["cc", "-c", f"{name}.c"], cwd=self.room, check=True)
            if name != "program":
                subprocess.run(["ar", "rc", f"lib{name}.a", f"{name}.o"], cwd=self.room, check=True)
        subprocess.run(["cc", "program.o", "libused.a", "libunused.a", "-o", "program", "-Wl,-Map=program.map"],
                       cwd=self.room, check=True)
        text = (self.room / "program.map").read_text(encoding="utf-8")
        sys.path.insert(0, str(SBOM.parent))
        import sbom  # pylint: disable=import-outside-toplevel
        objects = sbom.linked_objects(text)
        self.assertIn("libused.a(used.o)", objects)
        self.assertIn("program.o", objects)
        self.assertFalse([name for name in objects if "unused" in name], objects)
        self.assertEqual(contributing(text) - {"libc_nonshared.a"}, {"libused.a"})

    def test_components_are_those_in_the_built_programs(self) -> None:
        if not BUILD:
            self.skipTest("no Windows build")
        build, qt, *programs = BUILD
        done = subprocess.run([SBOM, "--build", build, "--qt", qt, "--version", "1", *programs],
                              capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 0, done.stderr)
        document = json.loads(done.stdout)
        for program in map(Path, programs):
            link_map = (Path(build) / f"{program.name}.map").read_text(encoding="utf-8", errors="replace")
            listed = set().union(*self.linked(document, program.name).values())
            self.assertLessEqual(contributing(link_map) - OWN, listed)
            self.assertIn("libQt5Core.a", listed)
            for library in listed:
                self.assertIn(library, link_map)


if __name__ == "__main__":
    BUILD = sys.argv[1:]
    unittest.main(argv=sys.argv[:1])
