# SPDX-License-Identifier: Apache-2.0
"""The version is written once, in CMakeLists.txt; whoever has to repeat it repeats that one."""

import pathlib
import re

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
VERSION = re.search(r"^project\(vus VERSION ([0-9]+\.[0-9]+\.[0-9]+) ",
                    (ROOT / "CMakeLists.txt").read_text(), flags=re.M).group(1)


@pytest.mark.parametrize("path, pattern", [
    ("CHANGELOG.md", r"^## ([^ \n]+)"),
    ("debian/changelog", r"^vus \(([^)]+)\)"),
    ("Android.bp", r'-DVUS_VERSION=\\"([^"\\]+)\\"'),
])
def test_repeated(path, pattern):
    found = re.findall(pattern, (ROOT / path).read_text(), flags=re.M)
    assert found and found[0] == VERSION


def test_every_definition_of_a_build_is_it():
    """No other file of a build has a version of its own."""
    builds = [ROOT / "CMakeLists.txt", *ROOT.glob("*/**/CMakeLists.txt")]
    builds = [path for path in builds if "build" not in path.relative_to(ROOT).parts]
    defined = [line for path in builds for line in path.read_text().splitlines()
               if "VUS_VERSION" in line]
    assert len(defined) == 2
    assert all("${PROJECT_VERSION}" in line for line in defined)
