#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Rolls a release out, stops it, takes it back and lets a plan advance, and checks what clients are offered.

prove-rollout.py PROJECT WORK: the second half of scripts/prove-release. A thousand networks send
requests through a load balancer's header; one real updater sends its own.
"""

import datetime
import json
import os
import random
import shutil
import subprocess
import sys
import time
import urllib.request
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

PROJECT, WORK = (Path(argument).resolve() for argument in sys.argv[1:3])
PUBLISH = PROJECT / "build/native/publish"
SITE = WORK / "rollout-site"
SERVICE = WORK / "rollout-service"
ROOM = WORK / "rollout"
PORT, PLAIN_PORT = random.sample(range(20_000, 30_000), 2)
NETWORKS = [f"198.{18 + i // 250}.{i % 250}.1" for i in range(1000)]
TIME_LIMIT = 60


def fail(what: str) -> None:
    """Ends the proof."""
    sys.exit(f"prove-release: {what}")


def publish(*arguments: object, code: int = 0) -> str:
    """Runs one command of publish, which must end with this code; returns its output."""
    done = subprocess.run([PUBLISH, *map(str, arguments)], capture_output=True, text=True,
                          check=False)
    if done.returncode != code:
        fail(f"publish {arguments[0]} ended with {done.returncode}:\n{done.stderr}")
    return done.stdout + done.stderr


def make_release(version: str, *options: str) -> None:
    """Publishes a release whose package is a client of this version."""
    client = ROOM / "client"
    (client / "~version").mkdir(parents=True, exist_ok=True)
    (client / "~version/version.json").write_text(json.dumps({"client": {"version": version}}))
    (client / "program.txt").write_text(version)
    publish("zip", "--client", client, "--name", "Client", "--version", version,
            "--config-file", "~version/version.json", "--update", "optional",
            "--notes-zh", WORK / "notes-zh.txt", "--notes-en", WORK / "notes-en.txt",
            "--out", SITE, *options)


def check(version: str, network: str) -> str:
    """What a client in this network is offered."""
    body = json.dumps({"clientVersion": version, "deviceType": "Windows", "platform": 6})
    request = urllib.request.Request(f"http://127.0.0.1:{PLAIN_PORT}/check", body.encode(),
                                     {"X-Forwarded-For": network})
    with urllib.request.urlopen(request, timeout=TIME_LIMIT) as answer:
        offer = json.load(answer)["biz"]
    return offer["latestVersion"] if offer["update"] != "0" else "none"


def offers(version: str) -> list:
    """What clients of one version are offered in all networks."""
    with ThreadPoolExecutor(8) as clients:
        return list(clients.map(lambda network: check(version, network), NETWORKS))


def expect(version: str, *wanted: str) -> None:
    """Requires that the offers in all networks are exactly these."""
    found = set(offers(version))
    if found != set(wanted):
        fail(f"clients with {version} are offered {sorted(found)} instead of {sorted(wanted)}")
    print(f"    clients with {version}: {', '.join(sorted(found))}")


def say(what: str) -> None:
    """Prints a headline."""
    print(f"\n== {what}", flush=True)


def start_service() -> subprocess.Popen:
    """Starts nginx on the loopback, as behind a load balancer; returns once it answers."""
    replacements = ROOM / "replacements"
    replacements.mkdir(parents=True)
    text = (PROJECT / "release/nginx/updates/clients.conf").read_text(encoding="utf-8")
    for line in ("set_real_ip_from 192.0.2.0/24;", "real_ip_header X-Forwarded-For;",
                 "real_ip_recursive on;"):
        text = text.replace(f"#     {line}", line.replace("192.0.2.0/24", "127.0.0.1"))
    (replacements / "clients.conf").write_text(text, encoding="utf-8")
    with (ROOM / "service.txt").open("w") as output:
        service = subprocess.Popen(
            [PROJECT / "scripts/serve", SITE, "--port", str(PORT), "--plain-port", str(PLAIN_PORT),
             "--work", SERVICE, "--replace", replacements], stdout=output, stderr=output)
    pid_file = SERVICE / "nginx.pid"
    deadline = time.monotonic() + TIME_LIMIT
    while not (pid_file.exists() and pid_file.read_text().strip() == str(service.pid)):
        if service.poll() is not None or time.monotonic() > deadline:
            fail((ROOM / "service.txt").read_text())
        time.sleep(0.05)
    return service


def update(installed: str) -> str:
    """Runs the real updater for a client of this version; returns the version afterwards."""
    home, client = ROOM / "home", ROOM / "installed"
    for folder in (home, client):
        shutil.rmtree(folder, ignore_errors=True)
    (home / "AppData/Roaming/norvaneAssistant").mkdir(parents=True)
    (home / "tmp").mkdir(mode=0o700)
    (client / "~version").mkdir(parents=True)
    (client / "AutoUpdate").mkdir()
    shutil.copy(PROJECT / "build/native/tests/standin", client / "Client.exe")
    shutil.copy(PROJECT / "build/native/AutoUpdate", client / "AutoUpdate")
    version_file = client / "~version/version.json"
    version_file.write_text(json.dumps({"client": {"version": installed}}))
    (client / "AutoUpdate/updateconfig.json").write_text(json.dumps({
        "appConfigFile": "~version/version.json", "appName": "Client.exe", "appPath": f"{client}/",
        "currentVersion": installed, "noRemind": 0, "noRemindVersion": "",
        "updateCheckUrl": f"https://localhost:{PORT}/check",
        "updatePackageUrl": f"http://localhost:{PLAIN_PORT}/packages/",
    }, indent=4) + "\n")
    environment = {**os.environ, "HOME": str(home), "TMPDIR": str(home / "tmp"),
                   "PATH": f"{PROJECT}/hosttools:{os.environ['PATH']}",
                   "QT_QPA_PLATFORM": "offscreen", "LC_ALL": "C.UTF-8"}
    done = subprocess.run([client / "AutoUpdate/AutoUpdate", "-immediately"], env=environment,
                          check=False, timeout=TIME_LIMIT)
    if done.returncode != 0:
        fail(f"the updater ended with {done.returncode}")
    return json.loads(version_file.read_text())["client"]["version"]


def expect_update(installed: str, wanted: str) -> None:
    """Requires that the real updater turns the one version into the other."""
    found = update(installed)
    if found != wanted:
        fail(f"the updater made {found} of {installed}, not {wanted}")
    print(f"    the real updater, from {installed}: now {found}")


def let_time_pass(seconds: int) -> None:
    """Makes the plan begin earlier by so many seconds."""
    file = SITE / "check/now/releases.json"
    listed = json.loads(file.read_text())
    for release in listed["releases"]:
        for key in ("planBegan", "stepBegan"):
            if release[key]:
                began = datetime.datetime.fromisoformat(release[key].replace("Z", "+00:00"))
                began -= datetime.timedelta(seconds=seconds)
                release[key] = began.strftime("%Y-%m-%dT%H:%M:%SZ")
    file.write_text(json.dumps(listed))


def download(network: str, version: str, whole: bool = True) -> None:
    """Downloads the package of a release, or disconnects in the middle."""
    request = urllib.request.Request(
        f"http://127.0.0.1:{PLAIN_PORT}/packages/Client-{version}.zip", None,
        {"X-Forwarded-For": network})
    with urllib.request.urlopen(request, timeout=TIME_LIMIT) as answer:
        answer.read(-1 if whole else 1)


def roll_out() -> None:
    """The life of a release with its mistakes."""
    log = SERVICE / "updates.log"
    say("1 % of 1,000 networks")
    publish("rollout", SITE, "--version", "2.2.0", "--share", "1")
    count = offers("2.1.0").count("2.2.0")
    print(f"    {count} are offered 2.2.0")
    # The expected number is ten, with a standard deviation of three.
    if not 1 <= count <= 25:
        fail("that is no chance")

    say("100 %")
    publish("rollout", SITE, "--version", "2.2.0", "--share", "100")
    expect("2.1.0", "2.2.0")
    expect("2.2.0", "none")
    expect_update("2.1.0", "2.2.0")

    say("Stopped")
    publish("stop", SITE, "--version", "2.2.0")
    expect("2.0.0", "2.1.0")
    expect_update("2.1.0", "2.1.0")
    publish("stop", SITE)
    expect("2.0.0", "none")

    say("Resumed")
    publish("resume", SITE)
    publish("resume", SITE, "--version", "2.2.0")
    expect("2.0.0", "2.2.0")

    say("Rolled back")
    publish("rollback", SITE, "--version", "2.2.0")
    expect("2.0.0", "2.1.0")
    expect("2.2.0", "none")
    expect_update("2.2.0", "2.2.0")
    publish("verify", SITE)

    say("Rolled back, with downgrade")
    publish("rollback", SITE, "--version", "2.2.0", "--downgrade")
    expect("2.2.0", "2.1.0")
    expect_update("2.2.0", "2.1.0")
    publish("verify", SITE)

    say("A plan that goes on")
    for network in NETWORKS[:40]:  # what interruptions are compared with
        download(network, "2.1.0")
    make_release("2.3.0")
    publish("rollout", SITE, "--version", "2.3.0", "--plan", "10% 1d, 50% 1d, 100%")
    lucky = [network for network, offer in zip(NETWORKS, offers("2.1.0")) if offer == "2.3.0"]
    for network in lucky[:40]:
        download(network, "2.3.0")
        check("2.3.0", network)
    print("   ", publish("advance", SITE, "--log", log).splitlines()[-1])
    let_time_pass(86400)
    print("   ", publish("advance", SITE, "--log", log).splitlines()[-1])
    if "50 %" not in publish("list", SITE).splitlines()[0]:
        fail("the share has not grown")

    say("A plan that stops, because downloads of the release are interrupted")
    for network in lucky[40:70]:
        download(network, "2.3.0", whole=False)
    let_time_pass(86400)
    print("   ", publish("advance", SITE, "--log", log, code=1).splitlines()[-1])
    expect("2.0.0", "2.1.0")
    publish("verify", SITE)


def main() -> None:
    """Publishes three releases, serves them, and takes them through their life."""
    shutil.rmtree(ROOM, ignore_errors=True)
    shutil.rmtree(SITE, ignore_errors=True)
    ROOM.mkdir(parents=True)
    # Larger than the buffers of a connection, so that a download can be interrupted.
    (ROOM / "client").mkdir()
    (ROOM / "client/data.bin").write_bytes(os.urandom(20_000_000))
    make_release("2.0.0", "--share", "100")
    make_release("2.1.0", "--share", "100")
    make_release("2.2.0")
    service = start_service()
    try:
        expect("2.0.0", "2.1.0")
        roll_out()
        print("\n" + publish("list", SITE), end="")
    finally:
        service.terminate()
        service.wait(TIME_LIMIT)


if __name__ == "__main__":
    main()
