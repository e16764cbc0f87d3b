#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The example installer under Wine: installation, updates and removal leave nothing behind."""

import fcntl
import getpass
import hashlib
import io
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import urllib.request
import zipfile
from pathlib import Path

from waiting import wait_until

UPDATER = Path()
STANDIN = Path()
TASKLIST = Path()
PROJECT = Path(__file__).resolve().parents[2]
BUILD_INSTALLER = PROJECT / "examples/installer/build"
WINE_RUN = PROJECT / "scripts/wine-run"
WINE_SERVER = "/usr/lib/wine/wineserver64"
PATIENCE_SECONDS = 240

NAME = "SampleClient"
HANDLER = r"HKEY_CURRENT_USER\Software\Classes\qorb-meeting"
UNINSTALL = rf"HKEY_CURRENT_USER\Software\Microsoft\Windows\CurrentVersion\Uninstall\{NAME}"
CONFIG = "AutoUpdate/updateconfig.json"
CHINESE = "plug ins/中文.txt"
# Keys that Wine writes by itself. The certificate stores appear when a program uses TLS.
SYSTEMS_OWN = ("\\Software\\Wine\\", "\\Explorer\\Shell Folders", "\\Software\\Microsoft\\SystemCertificates")
CHECK_SWITCH = "-noremid".encode("utf-16-le")
REFUSED = 2

# The usual folders of the user, because the setting of wine-run leads nowhere; a desktop other than
# that of the person who runs this test; and keys that every Windows has.
DESKTOP = rf"C:\\users\\{getpass.getuser()}\\Test Desktop"
SETTINGS = rf"""Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\Software\Microsoft\Windows NT\CurrentVersion\ProfileList]
"ProfilesDirectory"=-

[HKEY_CURRENT_USER\Software\Microsoft\Windows\CurrentVersion\Explorer\User Shell Folders]
"Desktop"="{DESKTOP}"

[HKEY_CURRENT_USER\Software\Classes]

[HKEY_CURRENT_USER\Software\Microsoft\Windows\CurrentVersion\Uninstall]
"""


def write(path: Path, content: str) -> None:
    """Writes a file and creates its folders."""
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(content, encoding="utf-8")


def files_below(folder: Path) -> dict:
    """The digest of each file by its path, and a description of folders and links."""
    found = {}
    for path in folder.rglob("*"):
        name = str(path.relative_to(folder))
        if name.startswith("Temp/~nsu"):
            continue  # the copy that the uninstaller continues in
        if path.is_symlink():
            found[name] = f"link to {os.readlink(path)}"
        elif path.is_dir():
            found[name] = "folder"
        else:
            found[name] = hashlib.sha256(path.read_bytes()).hexdigest()
    return found


def zip_package(folder: Path, name: str) -> bytes:
    """A zip package of a folder: one top folder, and each folder before its content."""
    package = io.BytesIO()
    with zipfile.ZipFile(package, "w") as archive:
        archive.mkdir(name)
        for path in sorted(folder.rglob("*")):
            archive.write(path, f"{name}/{path.relative_to(folder)}")
    return package.getvalue()


class Service:
    """The scripted server as update service and package server."""

    def __init__(self, room: Path):
        self.packages = room / "packages"
        self.packages.mkdir()
        self.process = subprocess.Popen(
            ["/usr/bin/python3", PROJECT / "tests/support/scriptedserver.py"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE,
        )
        self.ports = json.loads(self.process.stdout.readline())

    def end(self) -> None:
        """Ends the server by closing its input."""
        self.process.communicate()

    def script(self, path: str, step: dict) -> None:
        """Sets the answer for a path."""
        call = {"path": path, "steps": [step]}
        urllib.request.urlopen(
            f"http://127.0.0.1:{self.ports['http']}/_control/script", json.dumps(call).encode()
        ).close()

    def offer(self, version: str, name: str, package: bytes, update_type: int) -> None:
        """Offers a package: type 1 is a zip package, type 0 an installer."""
        file = self.packages / name
        file.write_bytes(package)
        self.script(f"/packages/{name}", {"file": str(file)})
        biz = {
            "id": name, "update": "1", "latestVersion": version, "latestVersionUrl": f"/{name}",
            "latestVersionInfo": "说明&notes", "md5": hashlib.md5(package).hexdigest(),
            "packageSize": len(package), "updateType": update_type,
        }
        self.script("/check", {"body": json.dumps({"code": "000000", "biz": biz})})


class Installer(unittest.TestCase):
    """Each test has its own Wine prefix."""

    def setUp(self) -> None:
        self.room = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.service = Service(self.room)
        self.addCleanup(self.service.end)
        self.environment = {**os.environ, "DISPLAY": self.start_display()}
        self.prefix = self.room / "prefix"
        self.addCleanup(self.end_windows)
        settings = self.room / "settings.reg"
        settings.write_text(SETTINGS, encoding="utf-16")
        self.assertEqual(self.run_wine("reg", "import", f"Z:{settings}"), 0)
        self.home = next(
            user for user in (self.prefix / "drive_c/users").iterdir() if user.name != "Public"
        )
        self.desktop = self.home / "Test Desktop"
        self.desktop.mkdir()
        self.local = self.home / "AppData/Local"
        self.client = self.local / "Programs" / NAME
        self.client_data = self.home / "AppData/Roaming/norvaneAssistant"
        self.calls = self.client / f"{NAME}.exe.calls"

    def start_display(self) -> str:
        """Starts a window server and returns its name. A lock serialises the search for a free number."""
        lock = PROJECT / "build/wine/display.lock"
        lock.parent.mkdir(parents=True, exist_ok=True)
        with lock.open("w") as locked:
            fcntl.flock(locked, fcntl.LOCK_EX)
            server = subprocess.Popen(
                ["Xvfb", "-displayfd", "1", "-noreset", "-screen", "0", "1280x1024x24",
                 "-nolisten", "tcp"],
                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
            )
            number = server.stdout.readline().decode().strip()

        def end() -> None:
            with lock.open("w") as locked:
                fcntl.flock(locked, fcntl.LOCK_EX)
                server.terminate()
                server.communicate()

        self.addCleanup(end)
        return f":{number}"

    def end_windows(self) -> None:
        """Ends all programs that still run."""
        subprocess.run([WINE_SERVER, "-k"], env={**os.environ, "WINEPREFIX": str(self.prefix)},
                       check=False)
        subprocess.run([WINE_SERVER, "-w"], env={**os.environ, "WINEPREFIX": str(self.prefix)},
                       check=False)

    def start_wine(self, *command: object) -> subprocess.Popen:
        """Starts a Windows program in the prefix."""
        return subprocess.Popen(
            [WINE_RUN, "--prefix", self.prefix, "--timeout", str(PATIENCE_SECONDS),
             "--command", TASKLIST, *command],
            env=self.environment, stdout=subprocess.DEVNULL,
        )

    def run_wine(self, *command: object) -> int:
        """Runs a Windows program and returns its exit code."""
        return self.start_wine(*command).wait()

    def registry(self) -> dict:
        """The keys of the user's registry, with their values as text."""
        file = self.prefix / "drive_c/registry.txt"
        self.assertEqual(self.run_wine("reg", "export", "HKCU", r"C:\registry.txt", "/y"), 0)
        text = file.read_text(encoding="utf-16").replace("\r", "")
        file.unlink()
        keys = {}
        for block in text.split("\n\n"):
            name, _, values = block.strip().partition("\n")
            if name.startswith("[") and not any(part in name for part in SYSTEMS_OWN):
                keys[name.strip("[]")] = values
        return keys

    def windows_path(self, path: Path) -> str:
        """The Windows path of a file in the prefix."""
        return "C:\\" + str(path.relative_to(self.prefix / "drive_c")).replace("/", "\\")

    def make_client(self, version: str, updater: Path) -> Path:
        """Creates the folder of a client with the updater, configured for the service."""
        folder = self.room / f"client-{version}"
        for program, target in ((STANDIN, f"{NAME}.exe"), (updater, "AutoUpdate/AutoUpdate.exe")):
            (folder / target).parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(program, folder / target)
        write(folder / "~version/version.json",
              json.dumps({"client": {"version": version}}, indent=4))
        write(folder / CHINESE, version)
        write(folder / f"only in {version}.txt", "")
        config = {
            "appConfigFile": "~version/version.json", "appName": f"{NAME}.exe", "appPath": "../",
            "currentVersion": version, "noRemind": 0, "noRemindVersion": "",
            "updateCheckUrl": f"https://localhost:{self.service.ports['https']}/check",
            "updatePackageUrl": f"http://localhost:{self.service.ports['http']}/packages/",
        }
        write(folder / CONFIG, json.dumps(config, indent=4) + "\n")
        return folder

    def make_setup(self, client: Path) -> Path:
        """Builds the installer of a client's folder."""
        setup = self.room / f"{client.name}.exe"
        subprocess.run([BUILD_INSTALLER, client, setup], check=True)
        return setup

    def client_starts(self) -> list:
        """The arguments of each start of the client."""
        if not self.calls.exists():
            return []
        lines = self.calls.read_text(encoding="ascii").splitlines()
        return [[bytes.fromhex(word).decode() for word in line.split()] for line in lines]

    def wait_for_start(self, number: int) -> list:
        """Waits for the start with this number and returns its arguments."""
        wait_until(lambda: len(self.client_starts()) >= number, f"start {number} of the client", PATIENCE_SECONDS)
        self.assertEqual(len(self.client_starts()), number)
        return self.client_starts()[-1]

    def compare_client(self, *layers: Path) -> None:
        """Verifies that the installed client has exactly the files of these folders, in layers."""
        expected = {}
        for layer in layers:
            expected.update(files_below(layer))
        installed = files_below(self.client)
        self.assertIsNotNone(installed.pop("Uninstall.exe", None))
        installed.pop(self.calls.name, None)
        # The updater writes the installed version into it.
        self.assertIsNotNone(installed.pop(CONFIG, None))
        expected.pop(CONFIG)
        self.assertEqual(installed, expected)

    def uninstall(self) -> None:
        """Uninstalls the client as Windows does and waits for the end."""
        command = self.registry()[UNINSTALL]
        self.assertIn(r'\\Uninstall.exe\" /S"', command)
        self.assertEqual(self.run_wine(self.windows_path(self.client / "Uninstall.exe"), "/S"), 0)
        # It goes on as a copy of itself, and removes its own entry last.
        wait_until(lambda: UNINSTALL not in self.registry(), "the end of the uninstaller", PATIENCE_SECONDS)

    def test_nothing_is_left_of_a_client_that_was_installed_updated_and_removed(self) -> None:
        # What others have where the client and the updater keep their files.
        write(self.local / "Programs/Other/Other.exe", "another program's")
        write(self.local / "AutoUpdate/other.txt", "another program's")
        write(self.client_data / "of another product.txt", "another program's")
        write(self.client_data / "update.log.txt", "another program's")
        write(self.desktop / "Other.lnk", "the user's")
        old, by_zip, by_installer = (
            self.make_client(version, UPDATER) for version in ("1.0.0", "2.1.3", "2.1.4")
        )
        shutil.rmtree(by_zip / "AutoUpdate")
        (by_zip / CHINESE).unlink()  # names in zip packages are ASCII
        files, registry = files_below(self.home), self.registry()

        # Installed.
        setup = self.make_setup(old)
        self.assertEqual(self.run_wine(setup, "/S"), 0)
        self.compare_client(old)
        program = self.windows_path(self.client / "AutoUpdate/AutoUpdate.exe").replace("\\", r"\\")
        added = {
            key: values for key, values in self.registry().items() if registry.get(key) != values
        }
        self.assertEqual(added[HANDLER], '@="URL:qorb-meeting"\n"URL Protocol"=""')
        self.assertEqual(added[rf"{HANDLER}\shell\open\command"],
                         rf'@="\"{program}\" \"%1\""')
        self.assertEqual({key for key in added if not key.startswith(HANDLER)}, {UNINSTALL})
        menu = self.home / "AppData/Roaming/Microsoft/Windows/Start Menu/Programs/Sample Client"
        self.assertEqual(
            {path: CHECK_SWITCH in path.read_bytes() for path in self.home.rglob("*.lnk")},
            {
                self.desktop / "Other.lnk": False,
                self.desktop / "Sample Client.lnk": False,
                menu / "Sample Client.lnk": False,
                menu / "Check for Updates.lnk": True,
            },
        )

        # A shortcut starts the client through the updater.
        self.service.script("/check", {"status": 404})
        self.run_wine("start", "/wait", self.windows_path(self.desktop / "Sample Client.lnk"))
        self.assertEqual(self.wait_for_start(1), ["-autoupdate"])
        # As Windows starts the handler: with the link in place of %1.
        link = "qorb-meeting://host/room?name=a b"
        handler, argument = re.fullmatch(
            r'@="\\"(.+)\\" \\"(.+)\\""', added[rf"{HANDLER}\shell\open\command"]).groups()
        self.run_wine(handler.replace("\\\\", "\\"), argument.replace("%1", link))
        self.assertEqual(self.wait_for_start(2), ["--url=host/room?name=a b"])

        # Updated by a zip package.
        self.service.offer("2.1.3", "SampleClient-2.1.3.zip",
                           zip_package(by_zip, "SampleClient-2.1.3"), 1)
        updater = self.windows_path(self.client / "AutoUpdate/AutoUpdate.exe")
        self.assertEqual(self.run_wine(updater, "-immediately", "--profile", "two words"), 0)
        self.assertEqual(self.wait_for_start(3), ["--profile", "two words"])
        self.compare_client(old, by_zip)

        # Updated by an installer, which hands over what the updater was started with.
        self.service.offer("2.1.4", "SampleClientSetup-2.1.4.exe",
                           self.make_setup(by_installer).read_bytes(), 0)
        self.assertEqual(
            self.run_wine(updater, "-immediately", "qorb-meeting://host/room", "--profile", "x y"), 0)
        self.assertEqual(self.wait_for_start(4), ["--profile", "x y", "--url=host/room"])
        self.compare_client(old, by_zip, by_installer)
        self.assertEqual((self.client / CONFIG).read_text(), (by_installer / CONFIG).read_text())

        # A client that runs is neither replaced nor removed.
        script = self.client / f"{NAME}.exe.script"
        write(script, "stay\n")
        client = self.start_wine(self.windows_path(self.client / f"{NAME}.exe"))
        self.wait_for_start(5)
        before = files_below(self.home)
        self.assertEqual(self.run_wine(setup, "/S"), REFUSED)
        uninstaller = self.windows_path(self.client / "Uninstall.exe")
        self.assertEqual(
            self.run_wine(uninstaller, "/S", f"_?={self.windows_path(self.client)}"), REFUSED)
        self.assertEqual(files_below(self.home), before)
        script.unlink()
        client.wait()

        # Removed.
        self.uninstall()
        self.assertEqual(files_below(self.home), files)
        self.assertEqual(self.registry(), registry)

    def test_what_another_program_has_put_there_or_registered_stays(self) -> None:
        setup = self.make_setup(self.make_client("1.0.0", STANDIN))
        self.run_wine("reg", "add", rf"{HANDLER}\shell\open\command", "/d", "Other.exe", "/f")
        write(self.client / "file.txt", "another program's")
        files, registry = files_below(self.home), self.registry()
        self.assertEqual(self.run_wine(setup, "/S"), REFUSED)
        self.assertEqual((files_below(self.home), self.registry()), (files, registry))

        shutil.rmtree(self.client)
        self.assertEqual(self.run_wine(setup, "/S"), 0)
        self.uninstall()
        self.assertEqual(self.registry(), registry)


if __name__ == "__main__":
    UPDATER, STANDIN, TASKLIST = (Path(sys.argv.pop(1)) for _ in range(3))
    unittest.main()
