#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The updater and the nginx of release/nginx/, with a roll-out to 10 % of the addresses."""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from nginxserver import NginxServer
from releasetree import ReleaseTree, package_id
from waiting import wait_until

SERVE = ""
UPDATER = ""
PUBLISH = ""
PROJECT = Path(__file__).resolve().parents[2]

# The updater asks from 127.0.0.1, which is in the 10 % of only one of these releases.
RELEASE_FOR_THIS_ADDRESS = "2.1.35"
RELEASE_FOR_OTHERS = "2.1.30"


class UpdaterAndService(unittest.TestCase):
    """Each test has its own home, client and service."""

    def setUp(self) -> None:
        self.room = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.tree = ReleaseTree(PUBLISH, self.room)
        self.client = self.room / "Client"
        self.log = self.room / "home/AppData/Local/AutoUpdate/AutoUpdate.log"
        for folder in ("home/AppData/Roaming/norvaneAssistant", "tmp", "Client/AutoUpdate"):
            (self.room / folder).mkdir(mode=0o700, parents=True)
        (self.client / "config.json").write_text('{"client": {"version": "2.0.1"}}')
        program = self.client / "NorvaneClient.exe"
        program.write_text('#!/bin/sh\necho "$@" >"$0.started"\n')
        program.chmod(0o755)

    def start_updater(self, server: NginxServer) -> subprocess.Popen:
        """Starts the updater of a client 2.0.1 with this service."""
        folder = self.client / "AutoUpdate"
        shutil.copy(UPDATER, folder)
        address = f"https://localhost:{server.port}"
        config = {
            "appName": "NorvaneClient.exe",
            "appConfigFile": "config.json",
            "appPath": f"{self.client}/",
            "updateCheckUrl": f"{address}/check",
            "updatePackageUrl": f"{address}/packages/",
            "noRemindVersion": "",
            "noRemind": 0,
            "currentVersion": "2.0.1",
        }
        (folder / "updateconfig.json").write_text(json.dumps(config))
        environment = {
            **os.environ,
            "HOME": str(self.room / "home"),
            "TMPDIR": str(self.room / "tmp"),
            "PATH": f"{PROJECT}/hosttools:{os.environ['PATH']}",
            "QT_QPA_PLATFORM": "offscreen",
            "XDG_RUNTIME_DIR": str(self.room / "tmp"),
            "LC_ALL": "C.UTF-8",
        }
        updater = subprocess.Popen([folder / Path(UPDATER).name], env=environment)
        self.addCleanup(updater.wait)
        self.addCleanup(updater.kill)
        return updater

    def logged(self, text: str) -> bool:
        """Whether the log of the updater contains the text."""
        return self.log.exists() and text in self.log.read_text(encoding="utf-8")

    def start_service(self, release: str) -> NginxServer:
        """Starts the service with a roll-out of this release."""
        self.tree.publish(release, "--share", "10")
        return self.enterContext(NginxServer(SERVE, self.tree.folder, self.room))

    def test_an_address_in_the_share_gets_the_prompt(self) -> None:
        server = self.start_service(RELEASE_FOR_THIS_ADDRESS)
        updater = self.start_updater(server)
        wait_until(lambda: self.logged("update fileName: ") or updater.poll() is not None, "prompt")
        self.assertTrue(self.logged(package_id(RELEASE_FOR_THIS_ADDRESS)))
        self.assertIsNone(updater.poll(), "it should be waiting for the user")
        line = server.log_lines(1)[0]
        self.assertEqual(
            (line["method"], line["path"], line["version"], line["answer"]),
            ("POST", "/check", "2.0.1", RELEASE_FOR_THIS_ADDRESS),
        )

    def test_an_address_beyond_the_share_gets_its_client_unchanged(self) -> None:
        server = self.start_service(RELEASE_FOR_OTHERS)
        updater = self.start_updater(server)
        self.assertEqual(updater.wait(60), 0)
        wait_until((self.client / "NorvaneClient.exe.started").exists, "the client's start")
        self.assertFalse(self.logged("update fileName: "))
        line = server.log_lines(1)[0]
        self.assertEqual((line["version"], line["answer"]), ("2.0.1", "none"))


if __name__ == "__main__":
    SERVE, UPDATER, PUBLISH = sys.argv.pop(1), sys.argv.pop(1), sys.argv.pop(1)
    unittest.main()
