# SPDX-License-Identifier: Apache-2.0
"""The register of oddities: its numbers, the tests that it names, and the code that refers to it."""

import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
REGISTER = ROOT / "docs" / "oddities.md"
SOURCES = [source for room in ("android/vus", "platform", "tools") for source in (ROOT / room).rglob("*")
           if source.suffix in (".cpp", ".h")]


def rows():
    lines = re.findall(r"^\| (\d+) \| (.*) \|$", REGISTER.read_text(), flags=re.M)
    return {int(number): text.split(" | ") for number, text in lines}


def test_the_numbers_have_no_gap():
    assert list(rows()) == list(range(1, len(rows()) + 1))


def test_every_row_is_held_by_a_test_that_there_is():
    tests = set()
    for source in (ROOT / "tests" / "unit").rglob("*.cpp"):
        for suite, name in re.findall(r"^TEST(?:_F|_P)?\((\w+), (\w+)\)", source.read_text(), flags=re.M):
            tests.add(f"{suite}.{name}")
    for number, (_, _, held) in rows().items():
        named = re.findall(r"`(\w+\.\w+)`", held)
        assert named, number
        assert set(named) <= tests, number


def test_what_the_code_refers_to_is_registered():
    for source in SOURCES:
        for number in re.findall(r"kept: oddity (\d+)", source.read_text()):
            assert int(number) in rows(), source


def test_every_row_has_its_place_in_the_code():
    code = "\n".join(source.read_text() for source in SOURCES)
    referred = {int(number) for number in re.findall(r"kept: oddity (\d+)", code)}
    assert referred == set(rows())
