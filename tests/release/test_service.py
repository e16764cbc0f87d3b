#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What updaters and other clients get from the nginx of release/nginx/."""

import shutil
import ssl
import subprocess
import sys
import tempfile
import unittest
import urllib.request
from pathlib import Path

import nginxserver
from nginxserver import NginxServer, check_body, decision
from releasetree import ReleaseTree, package_id
from shippedfiles import changed, shipped
from waiting import free_port

SERVE = ""
PUBLISH = ""
PACKAGE_PATH = f"/packages/{package_id('2.1.3')}"


class ServedTree(unittest.TestCase):
    """One nginx with the shipped files, for tests that change nothing."""

    @classmethod
    def setUpClass(cls) -> None:
        room = Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        cls.tree = ReleaseTree(PUBLISH, room)
        cls.tree.publish("2.1.3", "--share", "100")
        cls.server = cls.enterClassContext(NginxServer(SERVE, cls.tree.folder, room))


class Check(ServedTree):
    """POST /check."""

    def test_the_updaters_own_bytes_get_the_offer(self) -> None:
        body = check_body("1.0.0")
        sent = (
            b"POST /check HTTP/1.1\r\n"
            b"Host: localhost\r\n"
            b"X-Request-From: internal\r\n"
            b"content-type: application/json;charset=UTF-8\r\n"
            b"Accept-Encoding: gzip, deflate\r\n"
            b"Content-Length: %d\r\n"
            b"Connection: Keep-Alive\r\n"
            b"Accept-Language: en,*\r\n"
            b"User-Agent: Mozilla/5.0\r\n\r\n" % len(body)
        ) + body
        answer = self.server.raw(sent)
        self.assertEqual(answer.status, 200)
        self.assertEqual(answer.body, self.tree.answer("2.1.3").read_bytes())
        self.check_headers(answer)

    def test_nothing_newer_is_sent_like_an_offer(self) -> None:
        answer = self.server.ask(check_body("2.1.3"))
        self.assertEqual(answer.body, (self.tree.check / "none.json").read_bytes())
        self.assertEqual(decision(answer), "none")
        self.check_headers(answer)

    def check_headers(self, answer: nginxserver.Answer) -> None:
        """Verifies the headers of an answer to a check."""
        headers = dict(answer.headers)
        self.assertTrue(headers.pop("Date"))
        self.assertTrue(headers.pop("Last-Modified"))
        self.assertEqual(
            headers,
            {
                "Server": "nginx",
                "Content-Type": "application/json",
                "Content-Length": str(len(answer.body)),
                "Connection": "keep-alive",
                "Cache-Control": "no-store",
                "X-Content-Type-Options": "nosniff",
                "Strict-Transport-Security": "max-age=31536000",
            },
        )

    def test_other_methods_are_refused(self) -> None:
        for method in ("GET", "HEAD", "PUT", "DELETE", "OPTIONS"):
            with self.subTest(method):
                answer = self.server.request(method, "/check")
                self.assertEqual(answer.status, 405)
                self.assertEqual(answer.headers["Allow"], "POST")

    def test_a_body_beyond_a_kibibyte_is_refused(self) -> None:
        self.assertEqual(self.server.request("POST", "/check", body=b" " * 1024).status, 200)
        self.assertEqual(self.server.request("POST", "/check", body=b" " * 1025).status, 413)

    def test_nothing_else_of_the_tree_is_served(self) -> None:
        hidden = self.tree.check / "now" / "everywhere" / "other" / "rest"
        self.assertTrue(hidden.exists())
        paths = ["/", "/decision", "/decision/answer", "/decision/health", "/decision/none",
                 "/status", "/packages", "/packages/", "/packages/../check/none.json", "/check/",
                 "/check/check", "/packages/check", "/CHECK"]
        paths += [f"/{path.relative_to(self.tree.folder)}" for path in (
            hidden, self.tree.answer("2.1.3"), self.tree.check / "none.json",
            self.tree.check / "now" / "releases.json", self.tree.folder / "SHA256SUMS",
            self.tree.folder / "index.html",
        )]
        for path in paths:
            with self.subTest(path):
                self.assertIn(self.server.request("GET", path).status, (404, 405))
                self.assertEqual(self.server.ask(check_body("1.0.0"), path=path).status, 404)

    def test_old_tls_is_refused(self) -> None:
        for option, accepted in (("-tls1_1", False), ("-tls1_2", True), ("-tls1_3", True)):
            with self.subTest(option):
                result = subprocess.run(
                    ["openssl", "s_client", "-connect", f"127.0.0.1:{self.server.port}", option,
                     "-cipher", "DEFAULT@SECLEVEL=0"],
                    stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False,
                )
                self.assertEqual("Cipher is (NONE)" not in result.stdout, accepted)


class Packages(ServedTree):
    """GET /packages/ID."""

    def setUp(self) -> None:
        self.package = self.tree.package("2.1.3").read_bytes()

    def get(self, **headers: str) -> nginxserver.Answer:
        """Gets the package with these headers, whose names have underscores for dashes."""
        named = {name.replace("_", "-"): text for name, text in headers.items()}
        return self.server.request("GET", PACKAGE_PATH, headers=named)

    def test_a_package_arrives_whole_and_may_be_kept(self) -> None:
        answer = self.get(Accept_Encoding="gzip, deflate")
        self.assertEqual(answer.status, 200)
        self.assertEqual(answer.body, self.package)
        self.assertEqual(answer.headers["Content-Length"], str(len(self.package)))
        self.assertEqual(answer.headers["Content-Type"], "application/octet-stream")
        self.assertEqual(
            answer.headers["Cache-Control"], "public, max-age=31536000, immutable"
        )
        self.assertEqual(answer.headers["Accept-Ranges"], "bytes")
        self.assertNotIn("Content-Encoding", answer.headers)

    def test_a_range_is_cut_out(self) -> None:
        answer = self.get(Range="bytes=1000-1999")
        self.assertEqual(answer.status, 206)
        self.assertEqual(answer.body, self.package[1000:2000])
        self.assertEqual(answer.headers["Content-Range"], f"bytes 1000-1999/{len(self.package)}")

    def test_a_range_beyond_the_end_is_refused(self) -> None:
        self.assertEqual(self.get(Range=f"bytes={len(self.package)}-").status, 416)

    def test_a_range_of_a_former_package_gets_the_whole_new_one(self) -> None:
        tag = self.get().headers["ETag"]
        self.assertEqual(self.get(Range="bytes=0-9", If_Range=tag).status, 206)
        answer = self.get(Range="bytes=0-9", If_Range='"former"')
        self.assertEqual((answer.status, answer.body), (200, self.package))

    def test_an_unchanged_package_is_not_sent_again(self) -> None:
        tag = self.get().headers["ETag"]
        self.assertEqual(self.get(If_None_Match=tag).status, 304)

    def test_a_missing_package_may_not_be_kept_as_missing(self) -> None:
        answer = self.server.request("GET", f"/packages/{package_id('9')}")
        self.assertEqual(answer.status, 404)
        self.assertNotIn("Cache-Control", answer.headers)

    def test_a_package_is_not_for_posting(self) -> None:
        self.assertEqual(self.server.request("POST", PACKAGE_PATH).status, 405)


class FreshServer(unittest.TestCase):
    """Each test starts its own nginx."""

    def setUp(self) -> None:
        self.room = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.tree = ReleaseTree(PUBLISH, self.room)
        self.tree.publish("2.1.3", "--share", "100")

    def start(self, *options: str, **replaced: str) -> NginxServer:
        """Starts nginx with these options, and with these texts instead of shipped files."""
        return self.enterContext(
            NginxServer(SERVE, self.tree.folder, self.room, *options, **replaced)
        )


class Log(FreshServer):
    """The access log."""

    def test_the_version_is_found_however_the_body_comes(self) -> None:
        server = self.start()
        body = check_body("1.0.0")
        head = b"POST /check HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n"
        chunked = b"Transfer-Encoding: chunked\r\n\r\n%x\r\n%s\r\n0\r\n\r\n" % (len(body), body)
        self.assertEqual(server.raw(head + chunked).status, 200)
        length = b"Expect: 100-continue\r\nContent-Length: %d\r\n\r\n" % len(body)
        self.assertEqual(server.raw(head + length, body).status, 200)
        self.assertEqual([line["version"] for line in server.log_lines(2)], ["1.0.0", "1.0.0"])

    def test_it_tells_version_and_answer(self) -> None:
        server = self.start()
        # Each line is waited for: nginx's workers write theirs when they come to it.
        server.check("1.0.0")
        server.log_lines(1)
        server.check("2.1.3", "127.4.5.6")
        server.log_lines(2)
        server.request("GET", PACKAGE_PATH)
        server.log_lines(3)
        server.request("GET", "/check/none.json")
        server.log_lines(4)
        (self.tree.check / "none.json").unlink()
        server.check("2.1.3")
        wanted = ("address", "method", "path", "status", "version", "answer", "package")
        package = package_id("2.1.3")
        lines = server.log_lines(5)
        self.assertEqual(
            [tuple(line[key] for key in wanted) for line in lines],
            [
                ("127.0.0.1", "POST", "/check", "200", "1.0.0", "2.1.3", package),
                ("127.4.5.6", "POST", "/check", "200", "2.1.3", "none", ""),
                ("127.0.0.1", "GET", PACKAGE_PATH, "200", "", "", ""),
                ("127.0.0.1", "GET", "/check/none.json", "404", "", "", ""),
                ("127.0.0.1", "POST", "/check", "200", "2.1.3", "none", ""),
            ],
        )
        self.assertEqual({line["completed"] for line in lines}, {"OK"})
        self.assertEqual({line["tls"] for line in lines}, {"TLSv1.3"})

    def test_every_line_is_json_whatever_is_sent(self) -> None:
        server = self.start()
        bodies = (
            b"", b"{}", b"\x00\xff", b'{"clientVersion":"', b'{"clientVersion":"1\\"2"}',
            '{"clientVersion":"版"}'.encode(), b'{"clientVersion":"1\xff2"}',
            b'{"clientVersion":"' + b"9" * 65 + b'"}', b'{"clientVersion" : "1.0-beta"}',
        )
        for count, body in enumerate(bodies, 1):
            self.assertEqual(server.request("POST", "/check", body=body).status, 200)
            server.log_lines(count)
        odd = (b'GET /a"b\\c HTTP/1.1', b"GET /\xff\xfe HTTP/1.1", b"nonsense",
               b"GET /%s HTTP/1.1" % (b"a" * 900))
        for count, line in enumerate(odd, len(bodies) + 1):
            with server.tls_socket() as connection:
                connection.sendall(line + b"\r\nHost: localhost\r\nConnection: close\r\n\r\n")
                self.assertTrue(connection.recv(1))
            server.log_lines(count)
        lines = server.log_lines(len(bodies) + 4)
        self.assertEqual(
            [line["version"] for line in lines[: len(bodies)]], [""] * 8 + ["1.0-beta"]
        )
        self.assertEqual(
            [line["path"] for line in lines[len(bodies):]], ['/a"b\\c', "/", "", "/" + "a" * 255]
        )


class Limits(FreshServer):
    """The limits per network."""

    def test_who_asks_too_often_is_turned_away_and_others_are_not(self) -> None:
        slow = changed(shipped("clients.conf"), "updates_checks:32m rate=20r/s",
                       "updates_checks:32m rate=1r/m")
        server = self.start(clients=slow)
        answers = [server.check("1.0.0") for _ in range(402)]
        self.assertEqual(answers, ["2.1.3"] * 401 + ["429"])
        self.assertEqual(server.check("1.0.0", "127.0.0.2"), "2.1.3")

    def test_downloads_at_the_same_time_are_limited(self) -> None:
        few = changed(shipped("service.conf"), "updates_connections 400", "updates_connections 2")
        (self.tree.folder / "packages" / "large").write_bytes(bytes(50_000_000))
        server = self.start(service=few)
        under_way = [server.connection() for _ in range(2)]
        for connection in under_way:
            self.addCleanup(connection.close)
            connection.request("GET", "/packages/large")
            self.assertEqual(connection.getresponse().status, 200)
        self.assertEqual(server.request("GET", PACKAGE_PATH).status, 429)
        self.assertEqual(server.request("GET", PACKAGE_PATH, "127.0.0.2").status, 200)


class Health(FreshServer):
    """GET /health, by which a load balancer finds working nodes."""

    def health(self, path: str = "/health") -> int:
        """The status for a load balancer."""
        return self.server.request("GET", path).status

    def test_it_tells_whether_the_tree_can_be_read(self) -> None:
        self.server = self.start()
        self.assertEqual(self.health(), 200)
        none = self.tree.check / "none.json"
        none.unlink()
        self.assertEqual(self.health(), 503)
        none.mkdir()
        self.assertEqual(self.health(), 503)
        none.rmdir()
        none.symlink_to("none.json")
        self.assertEqual(self.health(), 503)

    def test_it_tells_whether_the_decisions_can_be_read(self) -> None:
        self.server = self.start()
        now = self.tree.check / "now"
        rest = now / "everywhere" / "other" / "rest"
        aside = self.room / "aside"
        for part in (now, now / "releases.json", now / "everywhere", now / "everywhere" / "other",
                     rest, rest.parent.resolve(), self.tree.answer("2.1.3")):
            with self.subTest(part):
                part.rename(aside)
                self.assertEqual(self.health(), 503)
                part.symlink_to("nowhere")
                self.assertEqual(self.health(), 503)
                part.unlink()
                aside.rename(part)
                self.assertEqual(self.health(), 200)

    def test_a_copy_that_followed_the_links_is_not_healthy(self) -> None:
        copy = self.room / "copy"
        shutil.copytree(self.tree.folder, copy)
        self.tree.folder = copy
        self.server = self.start()
        self.assertEqual(self.server.check("1.0.0"), "none")
        self.assertEqual(self.health(), 503)

    def test_a_tree_that_offers_nothing_is_healthy(self) -> None:
        self.server = self.start()
        self.tree.change("stop")
        self.assertEqual(self.health(), 200)
        self.tree.change("resume")
        self.tree.change("stop", "--version", "2.1.3")
        self.assertEqual(self.server.check("1.0.0"), "none")
        self.assertEqual(self.health(), 200)

    def test_a_product_that_is_not_there_has_none(self) -> None:
        self.server = self.start()
        self.assertEqual(self.health("/anything/health"), 404)

    def test_it_tells_whether_checks_can_be_decided(self) -> None:
        nobody = f"http://127.0.0.1:{free_port()}"
        lost = changed(shipped("inner.conf"), "http://updates_decision", nobody)
        server = self.start(inner=lost)
        self.assertEqual(server.request("GET", "/health").status, 503)


class Serve(FreshServer):
    """scripts/serve on the command line."""

    def refusal(self, *arguments: object) -> str:
        """Its only line of output when it refuses."""
        result = subprocess.run([SERVE, *arguments], capture_output=True, text=True, check=False)
        self.assertNotEqual(result.returncode, 0)
        self.assertEqual(result.stderr.count("\n"), 1, result.stderr)
        return result.stderr

    def test_it_says_what_is_wrong(self) -> None:
        (self.room / "blank here").mkdir()
        work = ("--work", self.room / "work")
        for arguments, line in (
            ((), "name the tree to serve"),
            ((self.tree.client, *work), "is no release tree"),
            ((self.tree.folder, "--port", "70000", *work), "70000 is no port"),
            ((self.tree.folder, "--plain-port", "no", *work), "no is no port"),
            ((self.tree.folder, "--port", "9999", "--plain-port", "9999", *work), "not 9999 twice"),
            ((self.tree.folder, "--frost"), "unknown option --frost"),
            ((self.tree.folder, "--key", "k", *work), "go together"),
            ((self.tree.folder, "--work", self.room / "blank here"), "without blanks"),
            ((self.tree.folder, "--replace", self.tree.folder / "packages", *work), "to replace"),
        ):
            with self.subTest(line):
                self.assertIn(line, self.refusal(*arguments))

    def test_a_port_in_use_is_not_taken_over(self) -> None:
        server = self.start()
        line = self.refusal(self.tree.folder, "--port", str(server.port), "--work", self.room / "other")
        self.assertIn("is taken", line)
        other_port = str(free_port())
        line = self.refusal(self.tree.folder, "--port", other_port, "--work", server.work)
        self.assertIn("serves from", line)
        self.assertEqual(server.check("1.0.0"), "2.1.3")

    def test_it_prints_the_addresses_for_the_updaters_configuration(self) -> None:
        server = self.start()
        printed = server.output.read_text()
        address = f"https://localhost:{server.port}"
        self.assertIn(f'"updateCheckUrl": "{address}/check"', printed)
        self.assertIn(f'"updatePackageUrl": "{address}/packages/"', printed)
        self.assertIn(str(server.work / "certificate.pem"), printed)

    def test_the_certificate_is_kept_for_the_next_run(self) -> None:
        server = NginxServer(SERVE, self.tree.folder, self.room)
        certificates = []
        for _ in range(2):
            with server:
                certificates.append(ssl.get_server_certificate(("127.0.0.1", server.port)))
        self.assertEqual(*certificates)

    def test_packages_can_be_had_without_trusting_the_certificate(self) -> None:
        plain_port = free_port()
        server = self.start("--plain-port", str(plain_port))
        address = f"http://localhost:{plain_port}/packages/"
        self.assertIn(f'"updatePackageUrl": "{address}"', server.output.read_text())
        with urllib.request.urlopen(address + package_id("2.1.3"), timeout=60) as answer:
            self.assertEqual(answer.read(), self.tree.package("2.1.3").read_bytes())
        self.assertEqual(server.check("1.0.0"), "2.1.3")


if __name__ == "__main__":
    SERVE, PUBLISH = sys.argv.pop(1), sys.argv.pop(1)
    unittest.main()
