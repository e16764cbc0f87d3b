#!/usr/bin/python3
"""What updaters, and whoever else calls, get from the nginx of release/nginx/."""

import json
import ssl
import subprocess
import sys
import tempfile
import unittest
import urllib.request
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import nginxserver
from nginxserver import NginxServer, check_body, make_tree
from rolloutfile import changed, rollout, shipped

SERVE = ""
PACKAGE_PATH = f"/packages/{nginxserver.PACKAGE}"


class ServedTree(unittest.TestCase):
    """One nginx with the files as they are shipped, for the tests that change nothing."""

    @classmethod
    def setUpClass(cls) -> None:
        room = Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        cls.tree = room / "tree"
        cls.package = make_tree(cls.tree)
        cls.server = cls.enterClassContext(NginxServer(SERVE, cls.tree, room))


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
        self.assertEqual(answer.body, (self.tree / "check" / "offer.json").read_bytes())
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

    def test_a_new_offer_by_rename_is_answered_at_once(self) -> None:
        offer = self.tree / "check" / "offer.json"
        former = offer.read_bytes()
        self.addCleanup(offer.write_bytes, former)
        successor = self.tree / "check" / "offer.json.new"
        successor.write_bytes(former.replace(b"2.1.3", b"2.1.4"))
        successor.rename(offer)
        answer = self.server.request("POST", "/check", body=check_body("1.0.0"))
        self.assertEqual(json.loads(answer.body)["biz"]["latestVersion"], "2.1.4")

    def test_without_an_offer_there_is_nothing_newer(self) -> None:
        offer = self.tree / "check" / "offer.json"
        self.addCleanup((self.tree / "kept").rename, offer)
        offer.rename(self.tree / "kept")
        self.assertEqual(self.server.check("1.0.0"), "none")

    def test_the_stop_file_withdraws_the_offer_at_once(self) -> None:
        stop = self.tree / "check" / "stop"
        self.assertEqual(self.server.check("1.0.0"), "offer")
        stop.touch()
        self.addCleanup(stop.unlink, missing_ok=True)
        self.assertEqual(self.server.check("1.0.0"), "none")
        stop.unlink()
        self.assertEqual(self.server.check("1.0.0"), "offer")

    def test_other_methods_are_refused(self) -> None:
        for method in ("GET", "HEAD", "PUT", "DELETE", "OPTIONS"):
            with self.subTest(method):
                answer = self.server.request(method, "/check")
                self.assertEqual(answer.status, 405)
                self.assertEqual(answer.headers["Allow"], "POST")

    def test_a_body_beyond_a_kibibyte_is_refused(self) -> None:
        self.assertEqual(self.server.request("POST", "/check", body=b" " * 1024).status, 200)
        self.assertEqual(self.server.request("POST", "/check", body=b" " * 1025).status, 413)

    def test_only_the_two_paths_are_there(self) -> None:
        for path in ("/", "/index.html", "/check/offer.json", "/check/none.json", "/decision",
                     "/status", "/packages", "/packages/", "/packages/../check/offer.json"):
            with self.subTest(path):
                self.assertEqual(self.server.request("GET", path).status, 404)

    def test_health_tells_whether_the_tree_is_there(self) -> None:
        none = self.tree / "check" / "none.json"
        self.assertEqual(self.server.request("GET", "/health").status, 200)
        self.addCleanup((self.tree / "kept").rename, none)
        none.rename(self.tree / "kept")
        self.assertEqual(self.server.request("GET", "/health").status, 503)

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

    def get(self, **headers: str) -> nginxserver.Answer:
        """The package, with underscores of header names for dashes."""
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
        self.assertEqual(answer.headers["Content-Range"], "bytes 1000-1999/300000")

    def test_a_range_beyond_the_end_is_refused(self) -> None:
        self.assertEqual(self.get(Range="bytes=300000-").status, 416)

    def test_a_range_of_a_former_package_gets_the_whole_new_one(self) -> None:
        tag = self.get().headers["ETag"]
        self.assertEqual(self.get(Range="bytes=0-9", If_Range=tag).status, 206)
        answer = self.get(Range="bytes=0-9", If_Range='"former"')
        self.assertEqual((answer.status, answer.body), (200, self.package))

    def test_an_unchanged_package_is_not_sent_again(self) -> None:
        tag = self.get().headers["ETag"]
        self.assertEqual(self.get(If_None_Match=tag).status, 304)

    def test_a_missing_package_may_not_be_kept_as_missing(self) -> None:
        answer = self.server.request("GET", "/packages/NorvaneClient-9.zip")
        self.assertEqual(answer.status, 404)
        self.assertNotIn("Cache-Control", answer.headers)

    def test_a_package_is_not_for_posting(self) -> None:
        self.assertEqual(self.server.request("POST", PACKAGE_PATH).status, 405)


class FreshServer(unittest.TestCase):
    """Each test starts an nginx of its own."""

    def setUp(self) -> None:
        self.room = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.tree = self.room / "tree"
        make_tree(self.tree)

    def start(self, *options: str, **replaced: str) -> NginxServer:
        """nginx with these options and these texts in the place of shipped files."""
        return self.enterContext(NginxServer(SERVE, self.tree, self.room, *options, **replaced))


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
        server = self.start(rollout=rollout("2.1.3  none;"))
        # Each line is waited for: nginx's workers write theirs when they come to it.
        server.check("1.0.0")
        server.log_lines(1)
        server.check("2.1.3", "127.4.5.6")
        server.log_lines(2)
        server.request("GET", PACKAGE_PATH)
        server.log_lines(3)
        server.request("GET", "/check/offer.json")
        wanted = ("address", "method", "path", "status", "version", "answer", "completed", "tls")
        self.assertEqual(
            [tuple(line[key] for key in wanted) for line in server.log_lines(4)],
            [
                ("127.0.0.1", "POST", "/check", "200", "1.0.0", "offer", "OK", "TLSv1.3"),
                ("127.4.5.6", "POST", "/check", "200", "2.1.3", "none", "OK", "TLSv1.3"),
                ("127.0.0.1", "GET", PACKAGE_PATH, "200", "", "", "OK", "TLSv1.3"),
                ("127.0.0.1", "GET", "/check/offer.json", "404", "", "", "OK", "TLSv1.3"),
            ],
        )

    def test_every_line_is_json_whatever_is_sent(self) -> None:
        server = self.start()
        bodies = (
            b"", b"{}", b"\x00\xff", b'{"clientVersion":"', b'{"clientVersion":"1\\"2"}',
            '{"clientVersion":"版"}'.encode(), b'{"clientVersion":"1\xff2"}',
            b'{"clientVersion":"' + b"9" * 65 + b'"}', b'{"clientVersion" : "1.0 beta"}',
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
            [line["version"] for line in lines[: len(bodies)]], [""] * 8 + ["1.0 beta"]
        )
        self.assertEqual(
            [line["path"] for line in lines[len(bodies):]], ['/a"b\\c', "/", "", "/" + "a" * 255]
        )


class Limits(FreshServer):
    """How often one network may ask."""

    def test_who_asks_too_often_is_turned_away_and_others_are_not(self) -> None:
        slow = changed(shipped("clients.conf"), "updates_checks:32m rate=20r/s",
                       "updates_checks:32m rate=1r/m")
        server = self.start(clients=slow)
        answers = [server.check("1.0.0") for _ in range(402)]
        self.assertEqual(answers, ["offer"] * 401 + ["429"])
        self.assertEqual(server.check("1.0.0", "127.0.0.2"), "offer")

    def test_downloads_at_the_same_time_are_limited(self) -> None:
        few = changed(shipped("service.conf"), "updates_connections 400", "updates_connections 2")
        (self.tree / "packages" / "large").write_bytes(bytes(50_000_000))
        server = self.start(service=few)
        under_way = [server.connection() for _ in range(2)]
        for connection in under_way:
            self.addCleanup(connection.close)
            connection.request("GET", "/packages/large")
            self.assertEqual(connection.getresponse().status, 200)
        self.assertEqual(server.request("GET", PACKAGE_PATH).status, 429)
        self.assertEqual(server.request("GET", PACKAGE_PATH, "127.0.0.2").status, 200)


class RollOut(FreshServer):
    """Who is offered the release."""

    def answers(self, server: NginxServer, addresses: list, version: str = "2.0.1") -> list:
        """What clients of one version at these addresses are answered."""
        with ThreadPoolExecutor(8) as clients:
            return list(clients.map(lambda address: server.check(version, address), addresses))

    def test_a_share_of_ten_thousand_addresses_is_offered_the_release(self) -> None:
        server = self.start(rollout=rollout("~^1\\.  offer;", share="10%"))
        addresses = [f"127.{i // 2500 + 1}.{i // 50 % 50}.{i % 50 * 5 + 1}" for i in range(10_000)]
        self.assertEqual(len(set(addresses)), 10_000)
        answers = self.answers(server, addresses)
        self.assertEqual(answers.count("offer") + answers.count("none"), 10_000)
        print(f"share: {answers.count('offer') / 100:.2f} %", file=sys.stderr)
        self.assertGreaterEqual(answers.count("offer"), 900)
        self.assertLessEqual(answers.count("offer"), 1100)

        logged = server.log_lines(10_000)
        self.assertEqual(
            sorted((line["address"], line["answer"]) for line in logged),
            sorted(zip(addresses, answers)),
        )
        # The same addresses once more, with a version that is offered it whatever the share.
        self.assertEqual(self.answers(server, addresses[:100], "1.4.2"), ["offer"] * 100)

    def test_raising_the_share_keeps_who_is_in(self) -> None:
        server = self.start(rollout=rollout(share="20%"))
        addresses = [f"127.9.0.{i}" for i in range(1, 201)]
        before = self.answers(server, addresses)
        server.reload(rollout(share="40%"))
        after = self.answers(server, addresses)
        self.assertGreater(after.count("offer"), before.count("offer"))
        self.assertEqual({b for a, b in zip(before, after) if a == "offer"}, {"offer"})

    def test_another_release_goes_to_others_first(self) -> None:
        server = self.start(rollout=rollout(share="50%"))
        addresses = [f"127.9.0.{i}" for i in range(1, 101)]
        before = self.answers(server, addresses)
        server.reload(rollout(share="50%", salt="2.1.4"))
        self.assertNotEqual(self.answers(server, addresses), before)

    def test_the_installed_version_decides(self) -> None:
        (self.tree / "check" / "offer-2.0.9.json").write_text(
            json.dumps({"code": "000000", "biz": {"update": "1", "latestVersion": "2.0.9"}})
        )
        rules = ("2.1.3  none;", r"~^2\.2\.  none;", r"~^2\.0\.  offer;", r"~^1\.  offer-2.0.9;")
        server = self.start(rollout=rollout(*rules, share="0.01%"))
        for version, answer in (("2.1.3", "none"), ("2.1.30", "none"), ("2.2.0-beta", "none"),
                                ("2.0.7", "offer"), ("2.00.7", "none"), ("", "none"),
                                ("1.9", "offer")):
            with self.subTest(version):
                self.assertEqual(server.check(version), answer)
        oldest = server.request("POST", "/check", body=check_body("1.9"))
        self.assertEqual(json.loads(oldest.body)["biz"]["latestVersion"], "2.0.9")

    def test_the_documented_roll_out_does_what_is_written_there(self) -> None:
        document = (Path(__file__).resolve().parents[2] / "docs" / "service.md").read_text("utf-8")
        documented = document.split("```nginx\n")[1].split("```")[0]
        server = self.start(rollout='map "" $kill_switch { default off; }\n' + documented)
        addresses = [f"127.9.0.{i}" for i in range(1, 101)]
        for version, answers in (("2.1.3", {"none"}), ("2.2.0", {"none"}), ("2.0.5", {"offer"}),
                                 ("1.7", {"offer", "none"})):
            with self.subTest(version):
                self.assertEqual(set(self.answers(server, addresses, version)), answers)

    def test_the_kill_switch_holds_for_everybody(self) -> None:
        rules = (r"~^2\.0\.  offer;",)
        server = self.start(rollout=rollout(*rules))
        self.assertEqual([server.check("2.0.1"), server.check("1.0")], ["offer", "offer"])
        server.reload(rollout(*rules, kill_switch="on"))
        self.assertEqual([server.check("2.0.1"), server.check("1.0")], ["none", "none"])

    def test_behind_a_load_balancer_the_clients_own_address_counts(self) -> None:
        behind = changed(
            shipped("clients.conf"),
            "#     set_real_ip_from 192.0.2.0/24;\n"
            "#     real_ip_header X-Forwarded-For;\n"
            "#     real_ip_recursive on;\n",
            "set_real_ip_from 127.0.0.1;\n"
            "real_ip_header X-Forwarded-For;\n"
            "real_ip_recursive on;\n",
        )
        server = self.start(clients=behind, rollout=rollout(share="50%"))
        one_household = [f"2001:db8:1:2:{i:x}::1" for i in range(1, 33)]
        households = [f"2001:db8:1:{i:x}:a::1" for i in range(1, 33)]
        offices = [f"198.51.100.{i}" for i in range(1, 33)]
        for address in (*one_household, *households, *offices):
            server.request("POST", "/check", body=check_body("1.0"),
                           headers={"X-Forwarded-For": f"10.0.0.1, {address}"})
        # Whoever is not the load balancer says nothing about others.
        server.request("POST", "/check", "127.0.0.2", body=check_body("1.0"),
                       headers={"X-Forwarded-For": "198.51.100.99"})
        # nginx's workers write their lines when they come to it.
        answers = {line["address"]: line["answer"] for line in server.log_lines(97)}
        self.assertEqual(set(answers), {*one_household, *households, *offices, "127.0.0.2"})
        self.assertEqual(len({answers[address] for address in one_household}), 1)
        self.assertEqual({answers[address] for address in households}, {"offer", "none"})
        self.assertEqual({answers[address] for address in offices}, {"offer", "none"})


class Serve(FreshServer):
    """scripts/serve as a tool."""

    def refusal(self, *arguments: object) -> str:
        """The one line with which it ends."""
        result = subprocess.run([SERVE, *arguments], capture_output=True, text=True, check=False)
        self.assertNotEqual(result.returncode, 0)
        self.assertEqual(result.stderr.count("\n"), 1, result.stderr)
        return result.stderr

    def test_it_says_what_is_wrong(self) -> None:
        (self.room / "blank here").mkdir()
        work = ("--work", self.room / "work")
        for arguments, line in (
            ((), "name the tree to serve"),
            ((self.room, *work), "is no release tree"),
            ((self.tree, "--port", "70000", *work), "70000 is no port"),
            ((self.tree, "--plain-port", "no", *work), "no is no port"),
            ((self.tree, "--port", "9999", "--plain-port", "9999", *work), "not 9999 twice"),
            ((self.tree, "--frost"), "unknown option --frost"),
            ((self.tree, "--key", "k", *work), "go together"),
            ((self.tree, "--work", self.room / "blank here"), "without blanks"),
            ((self.tree, "--replace", self.tree / "packages", *work), "to replace"),
        ):
            with self.subTest(line):
                self.assertIn(line, self.refusal(*arguments))

    def test_a_port_in_use_is_not_taken_over(self) -> None:
        server = self.start()
        line = self.refusal(self.tree, "--port", str(server.port), "--work", self.room / "other")
        self.assertIn("is taken", line)
        other_port = str(nginxserver.free_port())
        line = self.refusal(self.tree, "--port", other_port, "--work", server.work)
        self.assertIn("serves from", line)
        self.assertEqual(server.check("1.0.0"), "offer")

    def test_it_prints_the_addresses_for_the_updaters_configuration(self) -> None:
        server = self.start()
        printed = server.output.read_text()
        address = f"https://localhost:{server.port}"
        self.assertIn(f'"updateCheckUrl": "{address}/check"', printed)
        self.assertIn(f'"updatePackageUrl": "{address}/packages/"', printed)
        self.assertIn(str(server.work / "certificate.pem"), printed)

    def test_the_certificate_is_kept_for_the_next_run(self) -> None:
        server = NginxServer(SERVE, self.tree, self.room)
        certificates = []
        for _ in range(2):
            with server:
                certificates.append(ssl.get_server_certificate(("127.0.0.1", server.port)))
        self.assertEqual(*certificates)

    def test_packages_can_be_had_without_trusting_the_certificate(self) -> None:
        plain_port = nginxserver.free_port()
        server = self.start("--plain-port", str(plain_port))
        address = f"http://localhost:{plain_port}/packages/"
        self.assertIn(f'"updatePackageUrl": "{address}"', server.output.read_text())
        with urllib.request.urlopen(address + nginxserver.PACKAGE, timeout=60) as answer:
            self.assertEqual(
                answer.read(), (self.tree / "packages" / nginxserver.PACKAGE).read_bytes()
            )
        self.assertEqual(server.check("1.0.0"), "offer")


if __name__ == "__main__":
    SERVE = sys.argv.pop(1)
    unittest.main()
