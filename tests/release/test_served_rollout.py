#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Who is offered which release by nginx while releases are rolled out and taken back."""

import contextlib
import datetime
import itertools
import json
import os
import shutil
import sys
import tempfile
import threading
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import Callable

import nginxserver
from nginxserver import CHECK_HEADERS, NginxServer, check_body, decision
from releasetree import ReleaseTree, package_id
from shippedfiles import behind_load_balancer, changed, shipped
from waiting import wait_until

SERVE = ""
PUBLISH = ""

# A share that leaves nearly everybody out, for releases to some versions or networks.
LEAST = "0.1"


class Served(unittest.TestCase):
    """Each test has a tree without releases and starts an nginx of its own."""

    def setUp(self) -> None:
        self.room = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.tree = ReleaseTree(PUBLISH, self.room)

    def start(self, **replaced: str) -> NginxServer:
        """Starts nginx with these texts instead of shipped files."""
        return self.enterContext(NginxServer(SERVE, self.tree.folder, self.room, **replaced))

    def offers(self, server: NginxServer, addresses: list, version: str = "2.0.1") -> list:
        """The decisions for clients of one version, with addresses from the load balancer."""
        with ThreadPoolExecutor(8) as clients:
            return list(clients.map(
                lambda address: server.check(version, forwarded=address), addresses
            ))

    def assert_offers(self, server: NginxServer, offers: dict) -> None:
        """The decisions for clients of these versions."""
        self.assertEqual({version: server.check(version) for version in offers}, offers)


class Shares(Served):
    """Shares of all clients."""

    def test_a_share_of_ten_thousand_addresses_is_offered_the_release(self) -> None:
        self.tree.publish("2.1.3", "--share", "10")
        server = self.start()
        addresses = [f"127.{i // 2500 + 1}.{i // 50 % 50}.{i % 50 * 5 + 1}" for i in range(10_000)]
        self.assertEqual(len(set(addresses)), 10_000)
        with ThreadPoolExecutor(8) as clients:
            offers = list(clients.map(lambda address: server.check("2.0.1", address), addresses))
        self.assertEqual(offers.count("2.1.3") + offers.count("none"), 10_000)
        print(f"share: {offers.count('2.1.3') / 100:.2f} %", file=sys.stderr)
        self.assertGreaterEqual(offers.count("2.1.3"), 900)
        self.assertLessEqual(offers.count("2.1.3"), 1100)

        logged = server.log_lines(10_000)
        self.assertEqual(
            sorted((line["address"], line["answer"]) for line in logged),
            sorted(zip(addresses, offers)),
        )

    def test_raising_the_share_keeps_who_is_in(self) -> None:
        self.tree.publish("2.1.3", "--share", "20")
        server = self.start(clients=behind_load_balancer("127.0.0.1"))
        addresses = [f"198.51.100.{i}" for i in range(1, 201)]
        before = self.offers(server, addresses)
        self.tree.roll_out("2.1.3", "--share", "40")
        after = self.offers(server, addresses)
        self.assertGreater(after.count("2.1.3"), before.count("2.1.3"))
        self.assertEqual({b for a, b in zip(before, after) if a == "2.1.3"}, {"2.1.3"})
        self.tree.roll_out("2.1.3", "--share", "100")
        self.assertEqual(set(self.offers(server, addresses)), {"2.1.3"})

    def test_another_release_goes_to_others_first(self) -> None:
        self.tree.publish("2.1.3", "--share", "50")
        server = self.start(clients=behind_load_balancer("127.0.0.1"))
        addresses = [f"198.51.100.{i}" for i in range(1, 101)]
        former = self.offers(server, addresses)
        self.tree.publish("2.1.4", "--share", "50")
        self.tree.change("stop", "--version", "2.1.3")
        self.assertNotEqual(
            [offer != "none" for offer in self.offers(server, addresses)],
            [offer != "none" for offer in former],
        )

    def test_who_is_not_in_the_share_gets_the_newest_release_for_everybody(self) -> None:
        for version in ("2.1.2", "2.1.3"):
            self.tree.publish(version, "--share", "100")
        self.tree.publish("2.1.4", "--share", "50")
        server = self.start(clients=behind_load_balancer("127.0.0.1"))
        addresses = [f"198.51.100.{i}" for i in range(1, 101)]
        offers = self.offers(server, addresses)
        self.assertEqual(set(offers), {"2.1.3", "2.1.4"})
        share = [address for address, offer in zip(addresses, offers) if offer == "2.1.4"]
        rest = [address for address, offer in zip(addresses, offers) if offer == "2.1.3"]
        # Never their own release, nor one before it.
        for version, to_share, to_rest in (("2.1.2", "2.1.4", "2.1.3"), ("2.1.3", "2.1.4", "none"),
                                           ("2.1.4", "none", "none"), ("1.0", "2.1.4", "2.1.3")):
            with self.subTest(version):
                self.assertEqual(set(self.offers(server, share, version)), {to_share})
                self.assertEqual(set(self.offers(server, rest, version)), {to_rest})

    def test_behind_a_load_balancer_the_clients_own_address_counts(self) -> None:
        self.tree.publish("2.1.3", "--share", "50")
        server = self.start(clients=behind_load_balancer("127.0.0.1"))
        one_household = [f"2001:db8:1:2:{i:x}::1" for i in range(1, 33)]
        households = [f"2001:db8:1:{i:x}:a::1" for i in range(1, 33)]
        offices = [f"198.51.100.{i}" for i in range(1, 33)]
        for address in (*one_household, *households, *offices):
            server.check("1.0", forwarded=f"10.0.0.1, {address}")
        # Whoever is not the load balancer says nothing about others.
        server.check("1.0", "127.0.0.2", forwarded="198.51.100.99")
        # nginx's workers write their lines when they come to it.
        answers = {line["address"]: line["answer"] for line in server.log_lines(97)}
        self.assertEqual(set(answers), {*one_household, *households, *offices, "127.0.0.2"})
        self.assertEqual(len({answers[address] for address in one_household}), 1)
        self.assertEqual({answers[address] for address in households}, {"2.1.3", "none"})
        self.assertEqual({answers[address] for address in offices}, {"2.1.3", "none"})


class Versions(Served):
    """The installed version."""

    def test_a_release_is_offered_once_it_is_rolled_out(self) -> None:
        self.tree.publish("2.1.3")
        server = self.start()
        self.assertEqual(server.check("2.0.1"), "none")
        self.tree.roll_out("2.1.3", "--share", "100")
        self.assertEqual(server.check("2.0.1"), "2.1.3")
        self.tree.publish("2.1.4")
        self.assertEqual(server.check("2.0.1"), "2.1.3")

    def test_who_has_the_release_or_a_newer_one_is_not_offered_it(self) -> None:
        self.tree.publish("2.1.3", "--share", "100")
        # Newer is what was published later, whatever the numbers.
        self.tree.publish("1.9.9")
        server = self.start()
        self.assert_offers(server, {
            "2.1.3": "none", "1.9.9": "none", "2.1.30": "2.1.3", "2.1": "2.1.3", "9.9": "2.1.3",
            "": "2.1.3", "2.1.3-beta": "2.1.3",
        })

    def test_a_release_can_be_for_some_versions_only(self) -> None:
        self.tree.publish("2.0.5")
        self.tree.publish("2.1.3")
        server = self.start()
        patterns = ("--from", "2.0.*", "--from", "1.*", "--from", "3.0.0-beta", "--from", "4.5.6.*")
        self.tree.roll_out("2.1.3", "--share", "100", *patterns)
        self.assert_offers(server, {
            # The tree knows 2.0.5 only.
            "2.0.5": "2.1.3", "2.0.7": "2.1.3", "2.0.7.9": "2.1.3", "2.0.": "2.1.3",
            "1.0": "2.1.3", "1.2.3.4.5": "2.1.3", "3.0.0-beta": "2.1.3", "4.5.6.7": "2.1.3",
            "2.0": "none", "2.00.7": "none", "12.0": "none", "1": "none", "3.0.0": "none",
            "4.5.6": "none", "4.5.7.1": "none", "2.1.3": "none", "": "none",
        })
        self.tree.roll_out("2.1.3", "--from", "2.0.7")
        self.assert_offers(server, {"2.0.7": "2.1.3", "2.0.5": "none", "1.0": "none"})
        self.tree.roll_out("2.1.3", "--from", "*")
        self.assert_offers(server, {"2.0.5": "2.1.3", "2.0": "2.1.3", "1.0": "2.1.3"})

    def test_others_keep_the_release_for_everybody(self) -> None:
        self.tree.publish("2.1.3", "--share", "100")
        self.tree.publish("2.1.4", "--share", "100")
        self.tree.roll_out("2.1.4", "--from", "2.1.3")
        server = self.start()
        self.assert_offers(server, {"2.1.3": "2.1.4", "2.1.4": "none", "2.0.1": "2.1.3"})

    def test_a_strange_version_is_one_that_is_not_known(self) -> None:
        self.tree.publish("2.1.3", "--share", "100")
        server = self.start()
        for version in ("../..", "../../../../answers/2.1.3", "..", ".", "/", "2.1.3/", "*", "-",
                        "2.1.3\0", "%2e%2e", "$site", "版", "' or 1", "2.1.3 ", "9" * 65, "+"):
            with self.subTest(version):
                self.assertEqual(server.check(version), "2.1.3")

    def test_what_is_no_check_is_answered_with_nothing_newer(self) -> None:
        self.tree.publish("2.1.3", "--share", "100")
        server = self.start()
        for body in (b"", b"{}", b"\0\xff", b"clientVersion", b'{"version":"1.0"}', b" " * 1024):
            with self.subTest(body):
                self.assertEqual(decision(server.ask(body)), "none")


class Networks(Served):
    """Networks that get a release whatever its share."""

    def start_behind_load_balancer(self) -> NginxServer:
        """Starts nginx that trusts 127.0.0.1 for the address of the client."""
        return self.start(clients=behind_load_balancer("127.0.0.1"))

    def test_everybody_in_a_network_is_offered_the_release(self) -> None:
        networks = {
            "10.0.0.0/8": (("10.0.0.0", "10.255.255.255"), ("9.255.255.255", "11.0.0.0")),
            "172.16.0.0/12": (("172.16.0.0", "172.31.255.255"), ("172.15.0.1", "172.32.0.0")),
            "198.18.0.0/16": (("198.18.0.0", "198.18.255.255"), ("198.17.0.1", "198.19.0.0")),
            "100.64.64.0/18": (("100.64.64.0", "100.64.127.255"), ("100.64.63.1", "100.64.128.0")),
            "192.0.2.0/24": (("192.0.2.0", "192.0.2.255"), ("192.0.1.255", "192.0.3.0")),
            "203.0.113.96/27": (("203.0.113.96", "203.0.113.127"),
                                ("203.0.113.95", "203.0.113.128")),
            "198.51.100.7/32": (("198.51.100.7",), ("198.51.100.6", "198.51.100.70")),
            "198.51.100.200": (("198.51.100.200",), ("198.51.100.20", "198.51.100.201")),
            "2600::/16": (("2600::1", "2600:ffff:1:2:3:4:5:6"), ("2601::1", "260::1")),
            "2400:cb00::/29": (("2400:cb00::1", "2400:cb07:1::1"), ("2400:cb08::1", "2400::1")),
            "2001:db8::/32": (("2001:db8::1", "2001:db8:0:1::", "2001:db8:1:2:3:4:5:6"),
                              ("2001:db9::1", "2001:db80::1", "2001:0:db8::1")),
            "2620:fe:0::/48": (("2620:fe::1", "2620:fe::1:2:3:4:5", "2620:fe:0:9::1"),
                               ("2620:fe:1::1", "2620:0:fe::1")),
            "2400::5:0:0:0:0/64": (("2400::5:1:2:3:4", "2400:0:0:5::1"),
                                   ("2400::5:1:2:3", "2400:0:5::1", "2400:5::1")),
            "2a00::/48": (("2a00::1", "2a00::6:1:2:3:4"), ("2a00:0:1::1", "2a00:1::1")),
            "2001:4860::7": (("2001:4860::7",), ("2001:4860::6", "2001:4860::1:7")),
        }
        self.tree.publish("2.1.3", "--share", LEAST)
        options = itertools.chain.from_iterable(("--network", network) for network in networks)
        self.tree.roll_out("2.1.3", *options)
        server = self.start_behind_load_balancer()
        for network, (inside, outside) in networks.items():
            with self.subTest(network):
                self.assertEqual(set(self.offers(server, inside)), {"2.1.3"})
                self.assertEqual(set(self.offers(server, outside)), {"none"})

    def test_every_form_of_an_ipv6_address_is_found_in_its_network(self) -> None:
        # Each group after the first is zero or not: wherever "::" can stand.
        groups = [("0", f"{number:x}") for number in range(0xa2, 0xa9)]
        addresses = [("2400", *rest) for rest in itertools.product(*groups)]
        self.tree.publish("2.1.3", "--share", LEAST)
        server = self.start_behind_load_balancer()
        for length in (32, 48, 64, 128):
            count = length // 16

            def is_inside(address: tuple, count: int = count) -> bool:
                """Half of all networks, no two of them alike in more than one group."""
                return address[1:count].count("0") % 2 == 0

            version = f"3.0.{length}"
            self.tree.publish(version, "--share", LEAST)
            chosen = {address[:count] for address in addresses if is_inside(address)}
            self.tree.roll_out(version, *itertools.chain.from_iterable(
                ("--network", ":".join((*network, *["0"] * (8 - count))) + f"/{length}")
                for network in sorted(chosen)
            ))
            offers = self.offers(server, [":".join(address) for address in addresses])
            wrong = [":".join(address) for address, offer in zip(addresses, offers)
                     if (offer == version) != is_inside(address)]
            with self.subTest(length):
                self.assertEqual(wrong, [])
            self.tree.change("rollback", "--version", version)

    def test_the_smallest_network_decides_and_holds_what_larger_ones_get(self) -> None:
        server_addresses = ["10.1.2.3", "10.1.9.9", "10.9.9.9", "11.0.0.1"]
        self.tree.publish("2.1.2", "--share", "100")
        for version, network in (("2.1.3", "10.1.2.0/24"), ("2.1.4", "10.0.0.0/8"),
                                 ("2.1.5", "10.1.0.0/16")):
            self.tree.publish(version, "--share", LEAST)
            self.tree.roll_out(version, "--network", network)
        server = self.start_behind_load_balancer()
        self.assertEqual(
            self.offers(server, server_addresses), ["2.1.5", "2.1.5", "2.1.4", "2.1.2"]
        )
        self.tree.change("stop", "--version", "2.1.5")
        self.assertEqual(
            self.offers(server, server_addresses), ["2.1.4", "2.1.4", "2.1.4", "2.1.2"]
        )
        self.tree.change("stop", "--version", "2.1.4")
        self.assertEqual(
            self.offers(server, server_addresses), ["2.1.3", "2.1.2", "2.1.2", "2.1.2"]
        )

    def test_a_network_does_not_lift_the_restriction_to_versions(self) -> None:
        self.tree.publish("2.1.3", "--share", LEAST)
        self.tree.roll_out("2.1.3", "--network", "192.0.2.0/24", "--from", "2.0.*")
        server = self.start_behind_load_balancer()
        for version, inside, outside in (("2.0.7", "2.1.3", "none"), ("1.9", "none", "none")):
            offers = self.offers(server, ["192.0.2.1", "198.51.100.1"], version)
            self.assertEqual(offers, [inside, outside])


class TakingBack(Served):
    """Stops and rollbacks."""

    def test_the_stop_file_holds_for_everybody_at_once(self) -> None:
        self.tree.publish("2.1.3", "--share", "100")
        server = self.start()
        stop = self.tree.check / "stop"
        commands = ((stop.touch, stop.unlink), (lambda: self.tree.change("stop"),
                                                lambda: self.tree.change("resume")))
        for make, remove in commands:
            self.assertEqual(server.check("2.0.1"), "2.1.3")
            make()
            self.assertEqual(server.check("2.0.1"), "none")
            remove()
        self.assertEqual(server.check("2.0.1"), "2.1.3")

    def test_a_stopped_release_gives_way_to_the_one_before(self) -> None:
        for version in ("2.1.2", "2.1.3"):
            self.tree.publish(version, "--share", "100")
        server = self.start()
        self.tree.change("stop", "--version", "2.1.3")
        self.assert_offers(server, {"2.0.1": "2.1.2", "2.1.2": "none", "2.1.3": "none"})
        self.tree.change("resume", "--version", "2.1.3")
        self.assert_offers(server, {"2.0.1": "2.1.3", "2.1.2": "2.1.3", "2.1.3": "none"})

    def test_who_has_a_withdrawn_release_keeps_it(self) -> None:
        for version in ("2.1.2", "2.1.3"):
            self.tree.publish(version, "--share", "100")
        server = self.start()
        self.tree.change("rollback", "--version", "2.1.3")
        self.assert_offers(server, {"2.0.1": "2.1.2", "2.1.2": "none", "2.1.3": "none"})
        self.tree.publish("2.1.4", "--share", "100")
        self.assert_offers(server, {"2.1.2": "2.1.4", "2.1.3": "2.1.4"})

    def test_a_downgrade_brings_the_release_before_to_who_has_the_withdrawn_one(self) -> None:
        for version in ("2.1.1", "2.1.2", "2.1.3"):
            self.tree.publish(version, "--share", "100")
        server = self.start()
        self.tree.change("rollback", "--version", "2.1.3", "--downgrade")
        self.assert_offers(server, {"2.0.1": "2.1.2", "2.1.2": "none", "2.1.3": "2.1.2"})


class Damage(Served):
    """A damaged tree."""

    def setUp(self) -> None:
        super().setUp()
        self.tree.publish("2.1.3", "--share", "100")
        self.tree.roll_out("2.1.3", "--from", "2.*")
        self.sound = self.room / "sound"
        shutil.copytree(self.tree.folder, self.sound, symlinks=True)
        self.server = self.start()

    def restore(self) -> None:
        """Restores the tree, which offers the release."""
        shutil.rmtree(self.tree.folder)
        shutil.copytree(self.sound, self.tree.folder, symlinks=True)
        self.assertEqual(self.server.check("2.0.1"), "2.1.3")

    def check_damaged(self) -> None:
        """Verifies that nothing newer is offered, with or without the file that says so."""
        none = self.tree.check / "none.json"
        for damage in (None, *DAMAGES):
            if damage is not None:
                damage(none)
            if damage is not put_garbage:
                self.assertEqual(self.server.check("2.0.1"), "none", damage)

    def test_nothing_is_newer_in_a_damaged_tree(self) -> None:
        now = self.tree.check / "now"
        table = now / "everywhere" / "below-2"
        parts = (
            now, now.resolve(), now / "everywhere", table, table.resolve(), table / "rest",
            self.tree.check / "answers", self.tree.answer("2.1.3").parent,
            self.tree.answer("2.1.3"),
        )
        for part, damage in itertools.product(parts, DAMAGES):
            # A file with any content is an answer.
            if (part, damage) != (self.tree.answer("2.1.3"), put_garbage):
                with self.subTest(part=part, damage=damage.__name__):
                    self.restore()
                    damage(part)
                    self.check_damaged()

    def test_a_client_with_a_release_is_not_offered_an_older_one(self) -> None:
        self.tree.publish("2.2.0", "--share", LEAST)
        self.tree.roll_out("2.1.3", "--from", "*")
        known = {"2.1.3": "none", "2.2.0": "none"}
        others = {"2.0.1": "2.1.3", "": "2.1.3", ".": "2.1.3", "..": "2.1.3", "-": "2.1.3"}
        self.assert_offers(self.server, {**known, **others})
        sound = self.room / "two"
        shutil.copytree(self.tree.folder, sound, symlinks=True)
        everywhere = self.tree.check / "now" / "everywhere"
        for version, damage in itertools.product(known, DAMAGES):
            link = everywhere / f"is-{version}"
            for part in (link, link.resolve()):
                with self.subTest(part=part, damage=damage.__name__):
                    damage(part)
                    self.assert_offers(self.server, known)
                shutil.rmtree(self.tree.folder)
                shutil.copytree(sound, self.tree.folder, symlinks=True)
        self.assert_offers(self.server, {**known, **others})

    def test_a_link_that_leads_to_no_answer_is_nothing_newer(self) -> None:
        rest = self.tree.check / "now" / "everywhere" / "below-2" / "rest"
        targets = (Path("/etc/hostname"), self.tree.package("2.1.3"), self.tree.check / "none.json",
                   self.sound / "check" / "answers", self.tree.check / "now" / "releases.json")
        for target in targets:
            with self.subTest(target):
                self.restore()
                remove(rest)
                rest.symlink_to(target)
                self.assertTrue(rest.exists())
                self.check_damaged()

    @unittest.skipIf(os.geteuid() == 0, "root reads everything")
    def test_what_may_not_be_read_is_nothing_newer(self) -> None:
        parts = ("now/everywhere", "answers", "none.json", "generations",
                 self.tree.answer("2.1.3").relative_to(self.tree.check))
        for part in parts:
            with self.subTest(part):
                path = self.tree.check / part
                mode = path.stat().st_mode
                path.chmod(0)
                version = "2.1.3" if part == "none.json" else "2.0.1"
                self.assertEqual(self.server.check(version), "none")
                path.chmod(mode)


def remove(path: Path) -> None:
    """Removes a file, a link or a folder with its content."""
    if path.is_dir() and not path.is_symlink():
        shutil.rmtree(path)
    else:
        path.unlink(missing_ok=True)


def put_garbage(path: Path) -> None:
    """Replaces it by a meaningless file."""
    remove(path)
    path.write_bytes(b"\0garbage")


def put_folder(path: Path) -> None:
    """Replaces it by an empty folder."""
    remove(path)
    path.mkdir()


def put_loop(path: Path) -> None:
    """Replaces it by an endless link."""
    remove(path)
    path.symlink_to(path.name)


def put_dead_link(path: Path) -> None:
    """Replaces it by a dangling link."""
    remove(path)
    path.symlink_to("nowhere")


DAMAGES = (remove, put_garbage, put_folder, put_loop, put_dead_link)


class Products(unittest.TestCase):
    """Several products, each a folder below the one that is served."""

    def setUp(self) -> None:
        room = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.alpha = ReleaseTree(PUBLISH, room, "products/alpha")
        self.beta = ReleaseTree(PUBLISH, room, "products/beta-2")
        self.alpha.publish("2.1.3", "--share", "100")
        self.beta.publish("5.0.0", "--share", "100")
        self.root = room / "products"
        self.server = self.enterContext(NginxServer(SERVE, self.root, room))

    def check(self, product: str, version: str = "1.0") -> str:
        """The decision for a client of this product."""
        return self.server.check(version, path=f"/{product}/check")

    def test_each_has_releases_of_its_own(self) -> None:
        self.assertEqual([self.check("alpha"), self.check("beta-2")], ["2.1.3", "5.0.0"])
        self.assertEqual([self.check("alpha", "5.0.0"), self.check("beta-2", "5.0.0")],
                         ["2.1.3", "none"])
        self.alpha.publish("2.1.4")
        self.alpha.roll_out("2.1.4", "--share", "100")
        self.assertEqual([self.check("alpha"), self.check("beta-2")], ["2.1.4", "5.0.0"])

    def test_each_is_stopped_by_itself(self) -> None:
        self.alpha.change("stop")
        self.assertEqual([self.check("alpha"), self.check("beta-2")], ["none", "5.0.0"])
        self.alpha.change("resume")
        self.beta.change("rollback", "--version", "5.0.0")
        self.assertEqual([self.check("alpha"), self.check("beta-2")], ["2.1.3", "none"])

    def test_one_can_be_added_without_a_reload(self) -> None:
        self.assertEqual(self.check("gamma"), "404")
        gamma = ReleaseTree(PUBLISH, self.root.parent, "products/gamma")
        gamma.publish("7.0", "--share", "100")
        self.assertEqual(self.check("gamma"), "7.0")

    def test_what_is_no_product_is_not_found(self) -> None:
        (self.root / "empty").mkdir()
        for product in ("gamma", "empty", "alpha/check", "alpha/..", ".", "..", "%2e%2e", "alpha/x",
                        "alpha%2fcheck", "packages", "-alpha"):
            with self.subTest(product):
                self.assertIn(self.check(product), ("400", "404"))
        # There is none without a name here.
        self.assertEqual(self.server.check("1.0"), "404")

    def test_packages_are_found_below_the_product(self) -> None:
        for product, status in (("alpha", 200), ("beta-2", 404), ("gamma", 404)):
            path = f"/{product}/packages/{package_id('2.1.3')}"
            answer = self.server.request("GET", path)
            self.assertEqual(answer.status, status, path)
        answer = self.server.request("GET", f"/alpha/packages/{package_id('2.1.3')}")
        self.assertEqual(answer.body, self.alpha.package("2.1.3").read_bytes())

    def test_each_tells_how_it_is(self) -> None:
        (self.beta.check / "none.json").unlink()
        statuses = {name: self.server.request("GET", f"/{name}/health").status
                    for name in ("alpha", "beta-2", "gamma")}
        self.assertEqual(statuses, {"alpha": 200, "beta-2": 503, "gamma": 404})

    def test_the_log_tells_product_and_answer(self) -> None:
        self.check("beta-2")
        line = self.server.log_lines(1)[0]
        self.assertEqual((line["path"], line["answer"], line["package"]),
                         ("/beta-2/check", "5.0.0", package_id("5.0.0")))

    def test_their_addresses_are_printed(self) -> None:
        printed = self.server.output.read_text()
        for product in ("alpha", "beta-2"):
            address = f"https://localhost:{self.server.port}/{product}"
            self.assertIn(f'of {product}:\n    "updateCheckUrl": "{address}/check",\n'
                          f'    "updatePackageUrl": "{address}/packages/",\n', printed)


class Changes(Served):
    """A tree that changes while clients ask."""

    ROUNDS = 10
    PUSH_ROUNDS = 2
    CLIENTS = 3

    def setUp(self) -> None:
        super().setUp()
        self.tree.publish("2.1.0", "--share", "100")
        # What is right after each change. A change is under way between the two counts.
        self.decisions = ["2.1.0"]
        self.begun = self.done = 0
        self.is_over = threading.Event()
        self.beta = ReleaseTree(PUBLISH, self.room, "beta")
        self.node = self.room / "node"

    def ask_all_the_time(self, server: NginxServer) -> int:
        """Checks on one connection; returns their number."""
        count = 0
        with contextlib.closing(server.connection()) as connection:
            while not self.is_over.is_set():
                before = self.done
                connection.request("POST", "/check", check_body("2.0.1"), CHECK_HEADERS)
                answer = nginxserver.Answer(connection.getresponse())
                right = self.decisions[before : self.begun + 1]
                if decision(answer) not in right:
                    self.fail(f"{decision(answer)} instead of {right}: {server.errors()}")
                count += 1
        return count

    def do(self, right: str, command: str, version: str, *options: str) -> None:
        """Changes the tree to one with this decision."""
        self.decisions.append(right)
        self.begun += 1
        if command == "publish":
            self.tree.publish(version, *options)
        elif command == "promote":
            self.beta.change("promote", str(self.tree.folder), "--version", version)
        elif command == "push":
            self.tree.change(command, *options)
        else:
            self.tree.change(command, *(["--version", version] if version else []), *options)
        self.done += 1

    def change(self) -> None:
        """Every kind of change, from one release for everybody to the next."""
        former = "2.1.0"
        for number in range(1, self.ROUNDS + 1):
            stays, goes = f"2.1.{2 * number}", f"2.1.{2 * number + 1}"
            self.do(former, "publish", stays)
            self.do(stays, "rollout", stays, "--network", "127.0.0.0/8")
            self.do(former, "stop", stays)
            self.do(stays, "resume", stays)
            self.do(stays, "rollout", stays, "--share", "100", "--network", "none")
            self.beta.publish(goes)
            self.do(stays, "promote", goes)
            self.do(goes, "rollout", goes, "--share", "100", "--from", "2.0.*")
            self.do("none", "stop", "")
            self.do(goes, "resume", "")
            self.do(stays, "rollback", goes)
            former = stays
        self.advance_a_plan(former)

    def advance_a_plan(self, former: str) -> None:
        """Offers a release to this network, and then by a plan that goes on to everybody."""
        self.do(former, "publish", "3.0.0")
        self.do("3.0.0", "rollout", "3.0.0", "--network", "127.0.0.0/8",
                "--plan", f"{LEAST}% 1d, 100%")
        log = self.room / "work" / "updates.log"
        # nginx keeps its lines back for up to a second.
        wait_until(lambda: '"answer":"3.0.0"' in log.read_text(), "a logged offer")
        self.do(former, "rollout", "3.0.0", "--network", "none")
        self.let_a_day_pass()
        self.do("3.0.0", "advance", "", "--log", str(log))

    def let_a_day_pass(self) -> None:
        """Makes the plan begin a day earlier."""
        file = self.tree.check / "now" / "releases.json"
        listed = json.loads(file.read_text())
        for key in ("planBegan", "stepBegan"):
            began = datetime.datetime.fromisoformat(listed["releases"][-1][key].rstrip("Z"))
            began -= datetime.timedelta(days=1)
            listed["releases"][-1][key] = began.isoformat() + "Z"
        file.write_text(json.dumps(listed))

    def push_changes(self) -> None:
        """All kinds of differences between a tree and its node."""
        push = ("", str(self.node))
        former = "2.1.0"
        copy = self.room / "copy"
        for number in range(1, self.PUSH_ROUNDS + 1):
            version = f"2.2.{number}"
            self.tree.publish(version, "--share", "100")
            self.do(version, "push", *push)
            # Both lines of history have the same number of changes.
            shutil.copytree(self.tree.folder, copy, symlinks=True)
            self.tree.change("rollback", "--version", version)
            self.do(former, "push", *push)
            shutil.rmtree(self.tree.folder)
            copy.rename(self.tree.folder)
            self.tree.roll_out(version, "--from", "2.0.*")
            self.do(version, "push", *push)
            self.tree.change("stop")
            self.do("none", "push", *push)
            self.tree.change("resume")
            self.do(version, "push", *push)
            self.tree.roll_out(version, "--from", "*")
            self.do(version, "push", *push)
            former = version

    def test_each_check_gets_the_old_or_the_new_decision(self) -> None:
        self.ask_during(self.change, self.tree.folder)

    def test_each_check_of_a_node_gets_the_old_or_the_new_decision(self) -> None:
        self.tree.change("push", str(self.node))
        self.ask_during(self.push_changes, self.node)

    def ask_during(self, change: Callable[[], None], folder: Path) -> None:
        """Checks the tree in this folder while it is changed."""
        often = changed(shipped("clients.conf"), "updates_checks:32m rate=20r/s",
                        "updates_checks:32m rate=100000r/s")
        server = self.enterContext(NginxServer(SERVE, folder, self.room, clients=often))
        with ThreadPoolExecutor(self.CLIENTS) as pool:
            clients = [pool.submit(self.ask_all_the_time, server) for _ in range(self.CLIENTS)]
            try:
                change()
            finally:
                self.is_over.set()
                # First what they were answered: a change that waits for them fails after them.
                counts = [client.result() for client in clients]
        print(f"checks during {self.done} changes: {sum(counts)}", file=sys.stderr)
        self.assertGreater(min(counts), 0)


if __name__ == "__main__":
    SERVE, PUBLISH = sys.argv.pop(1), sys.argv.pop(1)
    unittest.main()
