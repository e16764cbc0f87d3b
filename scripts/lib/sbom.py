#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Prints the components of the Windows programs as an SPDX 2.3 document (JSON).

    sbom.py --build build/windows --qt QT_FOLDER --version VERSION PROGRAM.exe...

What a program contains is read from the linker's map of it, build/windows/PROGRAM.exe.map. Fails when the map has an
object that no component of release/windows/components.json names. Libraries that Windows brings along are no part of
the programs; of them only the few bytes of the import libraries are linked.
"""

import argparse
import hashlib
import json
import os
import posixpath
import re
import subprocess
import sys
import uuid
from datetime import datetime, timezone
from fnmatch import fnmatchcase
from pathlib import Path
from typing import Dict, List, Set

COMPONENTS = Path(__file__).resolve().parents[2] / "release" / "windows" / "components.json"

# GNU ld's map: the members of archives that were linked stand at the beginning of their lines in its first table, and
# whole files behind the word LOAD.
MEMBER = re.compile(r"^(\S[^()\n]*\.a)\(([^()\n]+)\)", re.MULTILINE)
OBJECT = re.compile(r"^LOAD (\S.*\.(?:o|obj))$", re.MULTILINE)
END_OF_MEMBERS = re.compile(r"^(?:Discarded input sections|Memory Configuration|Allocating common symbols)",
                            re.MULTILINE)


def linked_objects(link_map: str) -> Set[str]:
    """The objects in a program: FILE.o, or ARCHIVE(MEMBER)."""
    end = END_OF_MEMBERS.search(link_map)
    members = link_map[: end.start()] if end else link_map
    found = {f"{posixpath.normpath(archive)}({member})" for archive, member in MEMBER.findall(members)}
    return found | {posixpath.normpath(path) for path in OBJECT.findall(link_map)}


def sort_objects(objects: Set[str], components: List[dict]) -> Dict[str, List[str]]:
    """The objects of each component, by its name. The first component that fits has it."""
    found: Dict[str, List[str]] = {}
    strangers = []
    for name in sorted(objects):
        for component in components:
            if any(fnmatchcase(name, pattern) for pattern in component["objects"]):
                found.setdefault(component["name"], []).append(name)
                break
        else:
            strangers.append(name)
    if strangers:
        sys.exit(f"sbom: no component in {COMPONENTS.name} names {', '.join(strangers[:5])}")
    return found


def libraries(objects: List[str]) -> List[str]:
    """The file names of the archives and objects, each once."""
    return sorted({posixpath.basename(name.partition("(")[0]) for name in objects})


def installed_version(package: str) -> str:
    """Of a Debian package."""
    shown = subprocess.run(["dpkg-query", "-W", "-f", "${Version}", package], capture_output=True, text=True,
                           check=True)
    return shown.stdout


def qt_version(folder: Path) -> str:
    """As the static Qt itself tells it."""
    text = (folder / "mkspecs" / "qconfig.pri").read_text(encoding="utf-8")
    match = re.search(r"^QT_VERSION = (\S+)$", text, re.MULTILINE)
    return match.group(1) if match else ""


def identifier(name: str) -> str:
    """A name of SPDX's form: letters, digits, dots and dashes."""
    return "SPDXRef-" + re.sub(r"[^A-Za-z0-9.]+", "-", name)


def package_entry(component: dict, version: str) -> dict:
    """One component, as the document lists it."""
    entry = {
        "SPDXID": identifier(component["name"]),
        "name": component["name"],
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": False,
        "licenseConcluded": component["license"],
        "licenseDeclared": component["license"],
        "copyrightText": component.get("copyright", "NOASSERTION"),
    }
    if version:
        entry["versionInfo"] = version
    return entry


def document(programs: Dict[Path, Dict[str, List[str]]], components: List[dict],
             versions: Dict[str, str]) -> dict:
    """The whole document. Of each program its objects by component."""
    files, relationships = [], []
    used = {name for objects in programs.values() for name in objects}
    listed = [component for component in components if component["name"] in used]
    packages = [package_entry(component, versions.get(component["name"], "")) for component in listed]
    own = packages[0]["SPDXID"]
    digests = ""
    for program, objects in programs.items():
        content = program.read_bytes()
        sha256 = hashlib.sha256(content).hexdigest()
        digests += sha256
        files.append({
            "SPDXID": identifier(program.name),
            "fileName": f"./{program.name}",
            "fileTypes": ["BINARY"],
            "checksums": [
                {"algorithm": "SHA1", "checksumValue": hashlib.sha1(content).hexdigest()},
                {"algorithm": "SHA256", "checksumValue": sha256},
            ],
            "licenseConcluded": "NOASSERTION",
            "copyrightText": "NOASSERTION",
        })
        relationships.append({"spdxElementId": own, "relationshipType": "GENERATES",
                              "relatedSpdxElement": identifier(program.name)})
        for name, linked in objects.items():
            if identifier(name) != own:
                relationships.append({"spdxElementId": identifier(program.name), "relationshipType": "STATIC_LINK",
                                      "relatedSpdxElement": identifier(name),
                                      "comment": " ".join(libraries(linked))})
    for component in listed:
        if component.get("within"):
            relationships.append({"spdxElementId": identifier(component["within"]), "relationshipType": "CONTAINS",
                                  "relatedSpdxElement": identifier(component["name"])})
    moment = int(os.environ.get("SOURCE_DATE_EPOCH", "0"))
    # The same programs have the same document, others another one.
    namespace = uuid.uuid5(uuid.NAMESPACE_OID, digests)
    return {
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"AutoUpdate-{versions.get('AutoUpdate', '')}-windows-x86_64",
        "documentNamespace": f"urn:uuid:{namespace}",
        "creationInfo": {
            "created": datetime.fromtimestamp(moment, timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ"),
            "creators": ["Tool: AutoUpdate-package-windows"],
        },
        "documentDescribes": [own],
        "packages": packages,
        "files": files,
        "relationships": [{"spdxElementId": "SPDXRef-DOCUMENT", "relationshipType": "DESCRIBES",
                           "relatedSpdxElement": own}] + relationships,
    }


def main() -> None:
    """The command line."""
    parser = argparse.ArgumentParser(description=(__doc__ or "").splitlines()[0])
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--qt", type=Path, required=True)
    parser.add_argument("--version", required=True)
    parser.add_argument("programs", type=Path, nargs="+")
    options = parser.parse_args()
    components = json.loads(COMPONENTS.read_text(encoding="utf-8"))
    programs = {}
    for program in options.programs:
        link_map = (options.build / f"{program.name}.map").read_text(encoding="utf-8", errors="replace")
        programs[program] = sort_objects(linked_objects(link_map), components)
    versions = {"AutoUpdate": options.version, "Qt": qt_version(options.qt)}
    for component in components:
        if "package" in component and component["name"] not in versions:
            versions[component["name"]] = installed_version(component["package"])
    print(json.dumps(document(programs, components, versions), indent=4))


if __name__ == "__main__":
    main()
