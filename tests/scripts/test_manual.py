# SPDX-License-Identifier: Apache-2.0
"""The manual pages: well-formed, and true of the sources that they describe. That vusctl(1) has
every command and option is held by the program's own test (Completion)."""

import pathlib
import re
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGES = sorted((ROOT / "docs" / "man").glob("*.[1-8]"))
NAMES = {(page.stem, page.suffix[1:]) for page in PAGES}


def page(name):
    return (ROOT / "docs" / "man" / name).read_text()


def test_every_page_is_there():
    assert NAMES == {("vusctl", "1"), ("usb_device_config", "5"), ("vus-policy-lint", "7"),
                     ("vusd", "8"), ("vus_hotplug", "8")}


@pytest.mark.parametrize("path", PAGES, ids=lambda path: path.name)
def test_lint_is_clean(path):
    result = subprocess.run(["mandoc", "-T", "lint", str(path)], capture_output=True, text=True,
                            check=False, timeout=60)
    # Whether a page that is referred to is installed is no matter of this page.
    messages = [line for line in result.stdout.splitlines()
                if "referenced manual not found" not in line]
    assert (messages, result.stderr) == ([], "")


@pytest.mark.parametrize("path", PAGES, ids=lambda path: path.name)
def test_lint_would_find_something(path, tmp_path):
    broken = tmp_path / path.name
    broken.write_text(path.read_text() + ".Nosuchmacro\n")
    result = subprocess.run(["mandoc", "-T", "lint", str(broken)], capture_output=True, text=True,
                            check=False, timeout=60)
    assert "Nosuchmacro" in result.stdout


@pytest.mark.parametrize("path", PAGES, ids=lambda path: path.name)
def test_references_are_ours(path):
    references = set(re.findall(r"^\.Xr (\S+) (\d)", path.read_text(), flags=re.M))
    assert references and references <= NAMES


@pytest.mark.parametrize("path", PAGES, ids=lambda path: path.name)
def test_title_is_the_files_name(path):
    title = re.search(r"^\.Dt (\S+) (\d)$", path.read_text(), flags=re.M).groups()
    assert title == (path.stem.upper(), path.suffix[1:])


def test_hotplug_has_the_programs_options():
    usage = (ROOT / "tools" / "hotplug" / "options.h").read_text()
    options = re.findall(r'^ +"  --([a-z-]+) ', usage, flags=re.M)
    assert len(options) >= 5
    text = page("vus_hotplug.8")
    assert re.findall(r"^\.It Fl -([a-z-]+)(?: Ar \w+)?$", text, flags=re.M) == options
    synopsis = text.split(".Sh SYNOPSIS")[1].split(".Sh DESCRIPTION")[0]
    assert set(re.findall(r"Fl -([a-z-]+)", synopsis)) == set(options)


def test_daemon_has_the_programs_word():
    word = re.search(r'kStartupTasksArgument = "([^"]+)"',
                     (ROOT / "android" / "vus" / "daemon.cpp").read_text()).group(1)
    assert re.findall(r"^\.Op (.*)$", page("vusd.8"), flags=re.M) == [f"Cm {word}"]


def test_policy_has_every_class_name():
    guide = (ROOT / "docs" / "policy-guide.md").read_text()
    rows = re.findall(r"^\| (\d+) \| 0x[0-9A-F]+ \| (\w+) \| yes", guide, flags=re.M)
    assert len(rows) > 20
    listed = re.findall(r"^\.It (\w+) Ta (\d+)$", page("usb_device_config.5"), flags=re.M)
    assert listed == [(name, number) for number, name in rows]


def test_lint_has_every_finding():
    guide = (ROOT / "docs" / "lint" / "README.md").read_text()
    rows = re.findall(r"^\| \[([\w-]+)\]\([^)]*\) \| (\w+) \| (.*) \|$", guide, flags=re.M)
    assert len(rows) > 20
    text = page("vus-policy-lint.7")
    listed = re.findall(r"^\.It Cm (\S+) Pq (\w+)\n(.*)\.$", text, flags=re.M)
    assert listed == rows


def test_paths_are_the_programs():
    """Each fixed path of the daemon's directory that a page names is one that the sources name."""
    sources = "".join(path.read_text() for folder in ("android/vus", "tools/vusctl", "platform")
                      for path in (ROOT / folder).glob("*.*"))
    named = {path for each in PAGES for path in re.findall(r"^\.(?:It )?Pa (/(?:data|etc|run)\S*)",
                                                           each.read_text(), flags=re.M)}
    assert len(named) > 4
    assert {path for path in named if path not in sources} == set()
