#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Signed and unsigned releases, as publish meets them, with an authority of the test's own.

The programs are the smallest that can be signed, and are signed as those of the Windows package are.
"""

import http.server
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import threading
import unittest
import zipfile
from pathlib import Path
from typing import Optional

TOOL = ""
SIGN = Path(__file__).resolve().parents[2] / "scripts" / "lib" / "sign-programs"
SIGNER = "Norvane Ltd"
OTHER_LINE = re.compile(r"publish: (warning|[a-z]+, [0-9.]+ MiB)")  # warnings, and steps of the progress
TIME_LIMIT = 60  # seconds, for what takes a tenth of one

OPENSSL_CONFIG = """
[ca]
default_ca = own
[own]
dir = .
database = index.txt
serial = serial
new_certs_dir = .
default_md = sha256
policy = any
unique_subject = no
email_in_dn = no
[any]
commonName = supplied
[authority]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign
[signer]
extendedKeyUsage = codeSigning
keyUsage = critical,digitalSignature
[stamper]
extendedKeyUsage = critical,timeStamping
keyUsage = critical,digitalSignature
[tsa]
default_tsa = stamps
[stamps]
serial = stamp-serial
signer_cert = stamper.pem
certs = authority.pem
signer_key = stamper.key
signer_digest = sha256
default_policy = 1.2.3.4
digests = sha256, sha384, sha512
accuracy = secs:1
"""


def make_program(path: Path) -> None:
    """A Windows program (PE32+) with one section that does nothing."""
    header = struct.pack("<HHIIIHH", 0x8664, 1, 0, 0, 0, 240, 0x0022)
    optional = struct.pack("<HBBIIIII", 0x20B, 14, 0, 512, 0, 0, 0x1000, 0x1000)
    optional += struct.pack("<QIIHHHHHHIIIIHH", 1 << 32, 0x1000, 512, 6, 1, 0, 0, 6, 1, 0, 0x2000, 512, 0, 3, 0x160)
    optional += struct.pack("<QQQQII", 1 << 20, 4096, 1 << 20, 4096, 0, 16) + bytes(16 * 8)
    section = struct.pack("<8sIIIIIIHHI", b".text", 1, 0x1000, 512, 512, 0, 0, 0, 0, 0x60000020)
    start = b"MZ".ljust(0x3C, b"\0") + struct.pack("<I", 0x80)
    content = start.ljust(0x80, b"\0") + b"PE\0\0" + header + optional + section
    path.write_bytes(content.ljust(512, b"\0") + b"\xc3".ljust(512, b"\0"))


class StampHandler(http.server.BaseHTTPRequestHandler):
    """A time stamp service, which openssl answers for."""

    room = Path()

    def do_POST(self) -> None:  # pylint: disable=invalid-name
        """One stamp."""
        query = self.rfile.read(int(self.headers["Content-Length"]))
        (self.room / "query").write_bytes(query)
        subprocess.run(["openssl", "ts", "-reply", "-config", "openssl.cnf", "-queryfile", "query", "-out", "stamp"],
                       cwd=self.room, check=True, capture_output=True)
        reply = (self.room / "stamp").read_bytes()
        self.send_response(200)
        self.send_header("Content-Type", "application/timestamp-reply")
        self.send_header("Content-Length", str(len(reply)))
        self.end_headers()
        self.wfile.write(reply)

    def log_message(self, *_: object) -> None:  # pylint: disable=arguments-differ
        """Nothing."""


class Signature(unittest.TestCase):
    """Each test has a client of two programs, and signers of its own."""

    def setUp(self) -> None:
        self.room = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.client = self.room / "client"
        (self.client / "plugins").mkdir(parents=True)
        self.programs = [self.client / "Client.exe", self.client / "plugins" / "one.bin"]
        for program in self.programs:
            make_program(program)
        (self.client / "text.txt").write_text("MZ is how programs begin")
        (self.client / "empty.exe").write_text("")
        for language in ("zh", "en"):
            (self.room / language).write_text("new")
        (self.room / "openssl.cnf").write_text(OPENSSL_CONFIG)
        (self.room / "index.txt").write_text("")
        (self.room / "serial").write_text("01")
        (self.room / "stamp-serial").write_text("01")
        self.bin = self.room / "bin"
        self.environment = dict(os.environ)
        self.make_certificate("authority", "Authority of a test", "authority")
        self.make_certificate("signer", SIGNER, "signer")

    def openssl(self, *arguments: str) -> None:
        """Runs it where the authority has its files."""
        done = subprocess.run(["openssl", *arguments], cwd=self.room, capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 0, done.stderr)

    def make_certificate(self, name: str, subject: str, kind: str, days: Optional[tuple] = None) -> None:
        """NAME.pem and NAME.key, valid between two moments (YYYYMMDDHHMMSSZ)."""
        start, end = days or ("20200101000000Z", "21000101000000Z")
        self.openssl("req", "-new", "-newkey", "rsa:2048", "-nodes", "-utf8", "-subj", f"/CN={subject}",
                     "-keyout", f"{name}.key", "-out", f"{name}.csr")
        issuer = ["-selfsign", "-keyfile", f"{name}.key"] if kind == "authority" else [
            "-cert", "authority.pem", "-keyfile", "authority.key"]
        self.openssl("ca", "-batch", "-config", "openssl.cnf", "-in", f"{name}.csr", "-out", f"{name}.pem", "-notext",
                     "-startdate", start, "-enddate", end, "-extensions", kind, "-utf8", *issuer)

    def sign(self, signer: str, *files: Path, timestamp: str = "") -> None:
        """Signs files as the Windows package does."""
        stamp = ["--timestamp", timestamp] if timestamp else []
        done = subprocess.run(
            [SIGN, "--sign-with", self.room / f"{signer}.pem", "--key", self.room / f"{signer}.key", *stamp, *files],
            capture_output=True, text=True, check=False, timeout=TIME_LIMIT)
        self.assertEqual(done.returncode, 0, done.stderr)

    def run_tool(self, *arguments: object) -> subprocess.CompletedProcess:
        """The tool, which trusts the test's authority."""
        return subprocess.run([TOOL, *map(str, arguments)], capture_output=True, text=True, check=False,
                              timeout=TIME_LIMIT, env=self.environment)

    def demand(self, signer: str = SIGNER) -> list:
        """The options that ask for signatures."""
        return ["--require-signature", "--signer", signer, "--authorities", self.room / "authority.pem"]

    def publish(self, *options: object) -> subprocess.CompletedProcess:
        """Publishes the client."""
        return self.run_tool(
            "zip", "--client", self.client, "--name", "Client", "--version", "2.1.3", "--update", "optional",
            "--notes-zh", self.room / "zh", "--notes-en", self.room / "en", "--out", self.room / "site", *options)

    def publish_installer(self, file: Path, *options: object) -> subprocess.CompletedProcess:
        """Publishes an installer."""
        return self.run_tool(
            "installer", "--file", file, "--version", "2.1.4", "--update", "optional",
            "--notes-zh", self.room / "zh", "--notes-en", self.room / "en", "--out", self.room / "site", *options)

    def verify(self, *options: object) -> subprocess.CompletedProcess:
        """Verifies the tree."""
        return self.run_tool("verify", self.room / "site", *options)

    def expect(self, done: subprocess.CompletedProcess, *lines: str) -> None:
        """Refused, for these reasons only; accepted without any."""
        reasons = [line.removeprefix("publish: ") for line in done.stderr.splitlines()
                   if line.startswith("publish: ") and not OTHER_LINE.match(line)]
        self.assertEqual(reasons, list(lines), done.stderr)
        self.assertEqual(done.returncode, 1 if lines else 0, done.stderr + done.stdout)

    def tamper(self, program: Path) -> None:
        """Another instruction than the one that was signed."""
        content = bytearray(program.read_bytes())
        content[512] = 0x90
        program.write_bytes(content)

    def test_signed_programs_are_published_and_verified(self) -> None:
        self.sign("signer", *self.programs)
        self.expect(self.publish(*self.demand()))
        self.expect(self.verify(*self.demand()))
        self.expect(self.verify("--require-signature", "--authorities", self.room / "authority.pem"))

    def test_unsigned_programs_are_refused_by_their_content(self) -> None:
        lines = ("Client.exe is not signed; sign it", "plugins/one.bin is not signed; sign it")
        self.expect(self.publish(*self.demand()), *lines)
        self.assertFalse((self.room / "site").exists())
        self.expect(self.publish("--dry-run", *self.demand()), *lines)
        self.expect(self.publish())
        self.expect(self.verify())
        self.expect(self.verify(*self.demand()), *lines)

    def test_one_unsigned_program_is_enough(self) -> None:
        self.sign("signer", self.programs[0])
        self.expect(self.publish(*self.demand()), "plugins/one.bin is not signed; sign it")

    def test_programs_that_were_changed_after_signing_are_refused(self) -> None:
        self.sign("signer", *self.programs)
        self.tamper(self.programs[0])
        self.expect(self.publish(*self.demand()), "Client.exe was changed after it was signed; sign it again")
        self.expect(self.publish())
        self.expect(self.verify(*self.demand()), "Client.exe was changed after it was signed; sign it again")

    def test_another_signer_is_refused(self) -> None:
        self.make_certificate("other", "Mallory", "signer")
        self.sign("signer", self.programs[0])
        self.sign("other", self.programs[1])
        line = 'plugins/one.bin is signed by "Mallory" instead of "Norvane Ltd"; sign it, or correct --signer'
        self.expect(self.publish(*self.demand()), line)
        self.expect(self.publish("--require-signature", "--authorities", self.room / "authority.pem"))
        self.expect(self.verify(*self.demand()), line)

    def test_a_name_is_no_part_of_another_one(self) -> None:
        for number, name in enumerate(("Norvane Ltd.", "Not Norvane Ltd", "Mallory\\/CN=Norvane Ltd", "norvane ltd")):
            with self.subTest(name):
                self.make_certificate(f"similar{number}", name, "signer")
                for program in self.programs:
                    make_program(program)
                self.sign(f"similar{number}", *self.programs)
                done = self.publish("--dry-run", *self.demand())
                self.assertEqual(done.returncode, 1, done.stdout)
                self.assertIn('Client.exe is signed by "', done.stderr)

    def test_a_signer_may_have_a_chinese_name(self) -> None:
        self.make_certificate("chinese", "北京诺凡有限公司", "signer")
        self.sign("chinese", *self.programs)
        self.expect(self.publish(*self.demand("北京诺凡有限公司")))

    def test_an_authority_that_is_not_trusted_is_refused(self) -> None:
        self.sign("signer", *self.programs)
        self.expect(self.publish("--require-signature"), *(
            f"{name} is signed with a certificate from an authority that is not trusted here; name the authority with "
            "--authorities" for name in ("Client.exe", "plugins/one.bin")))

    def test_an_expired_certificate_is_refused_but_for_signatures_with_a_time_stamp_from_before(self) -> None:
        self.make_certificate("expired", SIGNER, "signer", ("20200101000000Z", "20200201000000Z"))
        self.sign("expired", *self.programs)
        line = ("is signed with a certificate that has expired, and has no time stamp from before; sign it again, "
                "with a time stamp")
        self.expect(self.publish(*self.demand()), f"Client.exe {line}", f"plugins/one.bin {line}")

        # Signed now, and looked at in thirty years: the certificate is older than its owner thought by then.
        self.make_certificate("stamper", "Time stamps of a test", "stamper")
        self.make_certificate("short", SIGNER, "signer", ("20200101000000Z", "20450101000000Z"))
        StampHandler.room = self.room
        server = http.server.HTTPServer(("127.0.0.1", 0), StampHandler)
        thread = threading.Thread(target=server.serve_forever)
        thread.start()
        self.addCleanup(server.server_close)
        self.addCleanup(thread.join)
        self.addCleanup(server.shutdown)
        for program in self.programs:
            make_program(program)
        self.sign("short", self.programs[0], timestamp=f"http://127.0.0.1:{server.server_port}/")
        self.sign("short", self.programs[1])
        self.expect(self.publish("--dry-run", *self.demand()))
        library = next(Path("/usr/lib").glob("*/faketime/libfaketimeMT.so.1"))
        self.replace_tool(f'LD_PRELOAD={library} FAKETIME=+30y exec {shutil.which("osslsigncode")} "$@"')
        self.expect(self.publish(*self.demand()), f"plugins/one.bin {line}")

    def test_installers_must_be_signed(self) -> None:
        setup = self.room / "Setup-2.1.4.exe"
        make_program(setup)
        self.expect(self.publish_installer(setup, *self.demand()), f"{setup} is not signed; sign it")
        self.sign("signer", setup)
        self.expect(self.publish_installer(setup, *self.demand()))
        self.expect(self.verify(*self.demand()))
        package = self.room / "site" / "packages" / setup.name
        line = f"{package} is signed by \"Norvane Ltd\" instead of \"Mallory\"; sign it, or correct --signer"
        self.expect(self.verify(*self.demand("Mallory")), line)

    def test_an_installer_that_is_no_program_is_refused(self) -> None:
        setup = self.room / "Setup-2.1.4.exe"
        setup.write_text("MZ")
        done = self.publish_installer(setup, *self.demand())
        self.assertEqual(done.returncode, 1)
        self.assertIn(f"{setup} has no valid signature", done.stderr)

    def replace_tool(self, commands: str) -> None:
        """Lets a script be the osslsigncode that is found."""
        self.bin.mkdir()
        stand_in = self.bin / "osslsigncode"
        stand_in.write_text(f"#!/bin/sh\n{commands}\n")
        stand_in.chmod(0o755)
        self.environment["PATH"] = f"{self.bin}:{self.environment['PATH']}"

    def test_a_missing_tool_is_named(self) -> None:
        self.sign("signer", *self.programs)
        self.environment["PATH"] = str(self.bin)
        line = ("signatures cannot be checked, because osslsigncode cannot be started; install it, on Debian with "
                "\"apt-get install osslsigncode\"")
        self.expect(self.publish(*self.demand()), line)
        self.expect(self.publish())
        self.expect(self.verify(*self.demand()), line)

    def test_a_tool_that_says_something_unknown_is_not_believed(self) -> None:
        self.replace_tool("echo Succeeded")
        self.expect(self.publish(*self.demand()), *(
            f'{name} is signed by "" instead of "Norvane Ltd"; sign it, or correct --signer'
            for name in ("Client.exe", "plugins/one.bin")))

    def test_the_packages_programs_are_taken_from_the_package(self) -> None:
        """An archive that was exchanged on the server holds other programs than those that were signed."""
        self.sign("signer", *self.programs)
        self.expect(self.publish(*self.demand()))
        package = self.room / "site" / "packages" / "Client-2.1.3.zip"
        with zipfile.ZipFile(package) as archive:
            entries = [(entry, archive.read(entry)) for entry in archive.infolist()]
        make_program(self.programs[0])
        with zipfile.ZipFile(package, "w", zipfile.ZIP_DEFLATED) as archive:
            for entry, content in entries:
                archive.writestr(entry, self.programs[0].read_bytes() if entry.filename.endswith(".exe") and content
                                 else content)
        done = self.verify(*self.demand())
        self.assertIn("publish: Client.exe is not signed; sign it\n", done.stderr)

    def test_signing_says_what_is_wrong(self) -> None:
        for arguments, reason in (
                (["--sign-with", self.room / "signer.pem"], "--sign-with CERT and --key KEY go together"),
                (["--sign-with", "missing.pem", "--key", self.room / "signer.key"],
                 "cannot read the certificate missing.pem"),
                (["--sign-with", self.room / "signer.pem", "--key", self.room / "signer.key", self.room / "zh"],
                 "zh cannot be signed: ")):
            done = subprocess.run([SIGN, *arguments], capture_output=True, text=True, check=False, timeout=TIME_LIMIT)
            self.assertEqual(done.returncode, 1)
            self.assertIn(reason, done.stderr)
        self.assertEqual((self.room / "zh").read_text(), "new")


if __name__ == "__main__":
    TOOL = sys.argv.pop(1)
    unittest.main()
