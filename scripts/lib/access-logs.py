#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes artificial access logs of the service, always the same: a fleet in which a release is rolled out, with the
failures of a real one. Each node has one plain log and one that was rotated and compressed.

    scripts/lib/access-logs.py FOLDER LINES [DAYS [NODES]]      writes FOLDER/nodeN.log and nodeN.log.1.gz
"""

import datetime
import gzip
import pathlib
import random
import sys

CHECKS_OF_CLIENT = 20  # in all the days
SECONDS_OF_DAY = 24 * 60 * 60
PACKAGE_BYTES = 62914560
OLD, NEWER, NEW = "2.1.1", "2.1.2", "2.1.3"
BEGIN = datetime.datetime(2026, 11, 1, tzinfo=datetime.timezone.utc)

FORM = (
    '{"time":"%s","address":"%s","method":"%s","path":"%s","status":"%s","bytes":%d,"seconds":%.3f,'
    '"completed":"%s","version":"%s","answer":"%s","package":"%s","tls":"TLSv1.3"}\n'
)


def package(version):
    """The ID of this version's package."""
    return f"Client-{version}.zip"


class Fleet:
    """Clients that check at random times and install what they are offered."""

    def __init__(self, clients, days):
        self.random = random.Random(1)
        self.days = days
        self.versions = [self.random.choice((OLD, NEWER)) for _ in range(clients)]

    def address(self, client):
        """Every third client has IPv6; every tenth shares the address of another."""
        home = client - client % 10 if client % 10 == 9 else client
        if home % 3 == 0:
            return f"2001:db8:{home >> 16:x}:{home & 0xffff:x}:{self.random.getrandbits(16):x}::1"
        return f"10.{home >> 16 & 255}.{home >> 8 & 255}.{home & 255}"

    def answer(self, client, day):
        """In the second half of the days there is a new release with a growing share."""
        half = self.days / 2
        newest, share = (NEW, (day - half) / (half / 2)) if day >= half else (NEWER, 1)
        is_in = self.versions[client] < newest and client * 2654435761 % 1000 < 1000 * share
        return newest if is_in else "none"

    def lines(self, count, nodes):
        """Yields COUNT lines in chronological order, each with the number of its node."""
        written = 0
        while written < count:
            second = written * self.days * SECONDS_OF_DAY // count
            time = BEGIN + datetime.timedelta(seconds=second)
            node = self.random.randrange(nodes)
            for line in self.visit(time, second / SECONDS_OF_DAY):
                written += 1
                yield node, line

    def visit(self, time, day):
        """The lines that are logged when a client checks."""
        client = self.random.randrange(len(self.versions))
        address, version, chance = self.address(client), self.versions[client], self.random.random()
        stamp = time.isoformat()
        if chance < 0.002:
            yield '{"time":"2026-11-0\n'
        elif chance < 0.01:
            yield FORM % (stamp, address, "GET", "/favicon.ico", "404", 300, 0, "OK", "", "", "")
        elif chance < 0.015:
            status = "429" if chance < 0.013 else "502"
            yield FORM % (stamp, address, "POST", "/check", status, 300, 0, "OK", "", "", "")
            return
        answer = self.answer(client, day)
        offered = package(answer) if answer != "none" else ""
        yield FORM % (stamp, address, "POST", "/check", "200", 715, 0.001, "OK", version, answer, offered)
        if not offered or self.random.random() < 0.3:
            return
        path = "/packages/" + offered
        if self.random.random() < (0.08 if answer == NEW else 0.04):
            sent = self.random.randrange(PACKAGE_BYTES)
            yield FORM % (stamp, address, "GET", path, "200", sent, 9.5, "", "", "", "")
        yield FORM % (stamp, address, "GET", path, "200", PACKAGE_BYTES, 2.5, "OK", "", "", "")
        if self.random.random() < 0.97:
            self.versions[client] = answer


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    folder, count = pathlib.Path(sys.argv[1]), int(sys.argv[2])
    days = int(sys.argv[3]) if len(sys.argv) > 3 else 14
    nodes = int(sys.argv[4]) if len(sys.argv) > 4 else 2
    folder.mkdir(parents=True, exist_ok=True)
    rotated = [gzip.open(folder / f"node{node}.log.1.gz", "wt", compresslevel=1) for node in range(nodes)]
    current = [open(folder / f"node{node}.log", "w", encoding="ascii") for node in range(nodes)]
    fleet = Fleet(max(1, count // CHECKS_OF_CLIENT), days)
    for number, (node, line) in enumerate(fleet.lines(count, nodes)):
        (rotated if number < count // 2 else current)[node].write(line)
    for file in (*rotated, *current):
        file.close()


if __name__ == "__main__":
    main()
