#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Each function that docs/architecture.md links to is defined in the file that the link names."""

import re
import unittest
from pathlib import Path
from typing import List, Tuple

PROJECT = Path(__file__).resolve().parents[2]
DOCUMENT = PROJECT / "docs" / "architecture.md"

# [`Class::Function`](../folder/file.cpp)
LINK = re.compile(r"\[`([\w:]+)`\]\(\.\./([^)#]+\.cpp)\)")
LEAST_STEPS = 5  # of a walk


def defines(source: str, function: str) -> bool:
    """Whether a definition of the function begins a line, behind its result. Declarations end with a semicolon."""
    definition = rf"^(?![ /#])[^=;(\n]*(?<![\w:]){re.escape(function)}\([^;{{]*\{{"
    return re.search(definition, source, re.MULTILINE) is not None


def walks(text: str) -> List[Tuple[str, str]]:
    """The headings of the walks, each with its text."""
    return [tuple(part.split("\n", 1)) for part in re.split(r"^## ", text, flags=re.MULTILINE)[1:]]


class Architecture(unittest.TestCase):
    """The document against the sources."""

    def test_each_linked_function_is_in_its_file(self) -> None:
        missing = []
        links = LINK.findall(DOCUMENT.read_text(encoding="utf-8"))
        for function, path in links:
            file = PROJECT / path
            if not file.is_file() or not defines(file.read_text(encoding="utf-8"), function):
                missing.append(f"{function} in {path}")
        self.assertEqual(missing, [])
        self.assertGreater(len(links), 20)

    def test_links_to_sources_name_a_function(self) -> None:
        text = DOCUMENT.read_text(encoding="utf-8")
        self.assertEqual(len(re.findall(r"\]\(\.\./[^)]+\.cpp", text)), len(LINK.findall(text)))

    def test_both_walks_lead_from_their_beginning_to_their_end(self) -> None:
        for (_, text), first, last in zip(walks(DOCUMENT.read_text(encoding="utf-8")),
                                          ("main", "ReplyCheckDataRecv"), ("LaunchProgram", "WriteConfigToFile")):
            functions = [function.rpartition(":")[2] for function, _ in LINK.findall(text)]
            self.assertEqual((functions[0], functions[-1]), (first, last))
            self.assertGreaterEqual(len(re.findall(r"^\d+\. ", text, re.MULTILINE)), LEAST_STEPS)

    def test_a_function_is_its_definition(self) -> None:
        source = ("int Used();\n    Used();\n// Used() {\nint Global::Used() const\n{\n}\n"
                  "bool Used(int a,\n          int b)\n{\n")
        self.assertTrue(defines(source, "Global::Used"))
        self.assertTrue(defines(source, "Used"))
        self.assertFalse(defines(source.split("bool")[0], "Used"))
        self.assertFalse(defines(source, "Other::Used"))
        self.assertFalse(defines(source, "sed"))


if __name__ == "__main__":
    unittest.main()
