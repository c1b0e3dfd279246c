# SPDX-License-Identifier: Apache-2.0
"""The private apt takes over the machine's own sources, in either form."""

import pathlib
import subprocess

SCRIPTS = pathlib.Path(__file__).parents[2] / "scripts"


def sources_as(kind, etc, out):
    out.mkdir()
    subprocess.run(
        ["bash", "-c", f'. "{SCRIPTS}/lib.sh"; . "{SCRIPTS}/apt.sh"; _sources_as "$@"', "bash",
         kind, etc, out], check=True)
    return {path.name: path.read_text() for path in out.iterdir()}


def make_etc(tmp_path, files):
    etc = tmp_path / "etc"
    (etc / "sources.list.d").mkdir(parents=True)
    for name, text in files.items():
        (etc / name).write_text(text)
    return etc


def test_one_line_sources(tmp_path):
    etc = make_etc(tmp_path, {"sources.list": (
        "# deb http://mirror.invalid/old stable main\n"
        "deb http://mirror.invalid/d bookworm main contrib\n"
        "deb [arch=amd64 signed-by=/k.gpg] http://mirror.invalid/d bookworm-updates main\n"
        "deb [ arch=amd64 ] http://mirror.invalid/s bookworm-security main\n"
        "deb-src http://mirror.invalid/d bookworm main\n")})
    assert sources_as("deb-src", etc, tmp_path / "out") == {"sources.list": (
        "deb-src http://mirror.invalid/d bookworm main contrib\n"
        "deb-src [ signed-by=/k.gpg] http://mirror.invalid/d bookworm-updates main\n"
        "deb-src  http://mirror.invalid/s bookworm-security main\n")}


def test_deb822_sources(tmp_path):
    etc = make_etc(tmp_path, {"sources.list.d/debian.sources": (
        "Types: deb deb-src\n"
        "# a comment\n"
        "URIs: http://mirror.invalid/d\n"
        "Suites: bookworm bookworm-updates\n"
        "Components: main\n"
        "Architectures: amd64\n"
        "Signed-By: /k.gpg\n")})
    assert sources_as("deb", etc, tmp_path / "out") == {"debian.sources": (
        "Types: deb\n"
        "URIs: http://mirror.invalid/d\n"
        "Suites: bookworm bookworm-updates\n"
        "Components: main\n"
        "Signed-By: /k.gpg\n")}


def test_both_forms_side_by_side(tmp_path):
    etc = make_etc(tmp_path, {
        "sources.list": "deb http://mirror.invalid/d bookworm main\n",
        "sources.list.d/more.list": "deb http://mirror.invalid/m bookworm main\n",
        "sources.list.d/ignored.txt": "deb http://mirror.invalid/x bookworm main\n"})
    assert set(sources_as("deb", etc, tmp_path / "out")) == {"sources.list", "more.list"}
