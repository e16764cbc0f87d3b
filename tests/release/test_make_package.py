#!/usr/bin/python3
"""What a release engineer gets from make-package."""

import hashlib
import json
import subprocess
import sys
import tempfile
import unittest
import zipfile
from pathlib import Path

TOOL = ""


class MakePackage(unittest.TestCase):
    """Each test has a client's folder and an output folder of its own."""

    def setUp(self) -> None:
        self.room = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.client = self.room / "client"
        self.output = self.room / "out"
        (self.client / "plug ins" / "语言").mkdir(parents=True)
        (self.client / "empty").mkdir()
        (self.client / "a.txt").write_text("a" * 1000)
        (self.client / "plug ins" / "语言" / "中文.txt").write_text("b")

    def make(self, *options: str, source: str = "") -> subprocess.CompletedProcess:
        """Runs the tool for version 2.1.3."""
        command = [TOOL, "--version", "2.1.3", "--output", self.output, *options]
        return subprocess.run(
            [*command, source or self.client], capture_output=True, text=True, check=False
        )

    def reply(self) -> dict:
        """The answer that the tool wrote."""
        return json.loads((self.output / "reply.json").read_text(encoding="utf-8"))

    def test_folders_stand_before_their_files_below_the_package_name(self) -> None:
        self.assertEqual(self.make().returncode, 0)
        with zipfile.ZipFile(self.output / "NorvaneClient-2.1.3.zip") as package:
            self.assertEqual(
                package.namelist(),
                [
                    "NorvaneClient-2.1.3/",
                    "NorvaneClient-2.1.3/a.txt",
                    "NorvaneClient-2.1.3/empty/",
                    "NorvaneClient-2.1.3/plug ins/",
                    "NorvaneClient-2.1.3/plug ins/语言/",
                    "NorvaneClient-2.1.3/plug ins/语言/中文.txt",
                ],
            )

    def test_the_answer_describes_the_package(self) -> None:
        self.assertEqual(self.make("--url-prefix", "https://x.invalid/p").returncode, 0)
        package = (self.output / "NorvaneClient-2.1.3.zip").read_bytes()
        biz = self.reply()["biz"]
        self.assertEqual(self.reply()["code"], "000000")
        self.assertEqual(biz["md5"], hashlib.md5(package).hexdigest())
        self.assertEqual(biz["packageSize"], len(package))
        self.assertEqual(biz["updateType"], 1)
        self.assertEqual(biz["update"], "1")
        self.assertEqual(biz["latestVersion"], "2.1.3")
        self.assertEqual(biz["latestVersionUrl"], "https://x.invalid/p/NorvaneClient-2.1.3.zip")
        self.assertEqual(biz["id"], "NorvaneClient-2.1.3.zip")

    def test_the_same_folder_gives_the_same_bytes(self) -> None:
        self.make()
        first = (self.output / "NorvaneClient-2.1.3.zip").read_bytes()
        (self.client / "a.txt").touch()
        self.make()
        self.assertEqual((self.output / "NorvaneClient-2.1.3.zip").read_bytes(), first)

    def test_notes_are_joined_chinese_first(self) -> None:
        (self.room / "zh").write_text("新\n", encoding="utf-8")
        (self.room / "en").write_text("new\n", encoding="utf-8")
        self.make("--notes-zh", str(self.room / "zh"), "--notes-en", str(self.room / "en"))
        self.assertEqual(self.reply()["biz"]["latestVersionInfo"], "新&new")

    def test_notes_with_the_separator_are_refused(self) -> None:
        (self.room / "en").write_text("this & that", encoding="utf-8")
        result = self.make("--notes-en", str(self.room / "en"))
        self.assertNotEqual(result.returncode, 0)
        self.assertIn('may not hold "&"', result.stderr)

    def test_an_installer_is_published_as_it_is(self) -> None:
        setup = self.room / "Setup.exe"
        setup.write_bytes(b"MZ installer")
        self.assertEqual(self.make("--installer", "--forced", source=str(setup)).returncode, 0)
        self.assertEqual((self.output / "Setup.exe").read_bytes(), b"MZ installer")
        self.assertEqual(self.reply()["biz"]["updateType"], 0)
        self.assertEqual(self.reply()["biz"]["update"], "2")

    def test_a_missing_folder_is_refused(self) -> None:
        result = self.make(source=str(self.room / "nothing"))
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("is not a folder", result.stderr)

    def test_a_name_that_the_updater_would_cut_is_refused(self) -> None:
        result = self.make("--name", "client.zip-2.zip")
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("hold it only there", result.stderr)


if __name__ == "__main__":
    TOOL = sys.argv.pop(1)
    unittest.main()
