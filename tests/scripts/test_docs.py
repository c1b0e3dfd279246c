# SPDX-License-Identifier: Apache-2.0
"""The documents against the tree: links lead somewhere, commands run something, and the paths,
properties and messages they name are the program's own."""

import fnmatch
import json
import pathlib
import re

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
DOCUMENTS = (sorted(ROOT.glob("*.md")) + sorted((ROOT / "docs").rglob("*.md"))
             + [ROOT / "tests" / "README.md", ROOT / "fuzz" / "README.md"])
REFERENCE = ROOT / "docs" / "properties-and-files.md"


def without_code(text):
    return re.sub(r"^```.*?^```", "", text, flags=re.M | re.S)


def anchors(document):
    """The anchors that GitHub makes of a document's headings."""
    for title in re.findall(r"^#+ (.*)$", without_code(document.read_text()), flags=re.M):
        plain = re.sub(r"[^\w\- ]", "", title.strip().lower())
        yield plain.replace(" ", "-")


def links(document):
    return re.findall(r"\]\(([^)\s]+)\)", without_code(document.read_text()))


def literals_in(code):
    """The string literals of C++, adjacent ones joined."""
    for run in re.findall(r'(?:"(?:[^"\\\n]|\\.)*"\s*)+', code):
        pieces = re.findall(r'"((?:[^"\\\n]|\\.)*)"', run)
        yield "".join(pieces).replace('\\"', '"').replace("\\n", "")


def literals():
    """Those of the product's sources."""
    for source in [*ROOT.glob("android/vus/*.cpp"), *ROOT.glob("android/vus/*.h")]:
        yield from literals_in(source.read_text())


def table(heading):
    """The rows of the tables below a heading, up to the next heading of its level."""
    text = REFERENCE.read_text()
    level = re.match("#+", heading).group()
    section = text.split(heading + "\n", 1)[1]
    section = re.split(rf"^{level} ", section, maxsplit=1, flags=re.M)[0]
    rows = re.findall(r"^\|(.*)\|$", section, flags=re.M)
    return [[cell.strip() for cell in row.split("|")] for row in rows]


def first_code(cell):
    found = re.match(r"`([^`]+)`", cell)
    return found.group(1) if found else None


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: str(path.relative_to(ROOT)))
def test_links_lead_somewhere(document):
    for link in links(document):
        if re.match(r"[a-z]+:", link):
            continue
        path, _, anchor = link.partition("#")
        target = (document.parent / path).resolve() if path else document
        assert target.exists(), link
        assert target == ROOT or ROOT in target.parents, f"{link} leaves the tree"
        if anchor:
            assert anchor in set(anchors(target)), link


def test_installed_pages_link_to_installed_pages():
    """The administrator's pages; what those link to in their turn may be the checkout's."""
    installed = {line for name in ("vus", "vus-tools")
                 for line in (ROOT / "debian" / f"{name}.docs").read_text().split()}
    for name in ("linux-host", "policy-guide", "properties-and-files", "workbench"):
        page = ROOT / "docs" / f"{name}.md"
        linked = {(page.parent / link.partition("#")[0]).resolve() for link in links(page)
                  if re.match(r"[\w./-]+\.md(#|$)", link)}
        paths = {str(path.relative_to(ROOT)) for path in linked | {page}}
        assert {path for path in paths if path not in installed
                and str(pathlib.Path(path).parent) not in installed} == set(), name


def test_what_the_reporter_says_is_documented():
    """Every text that it says without being asked, and no other. ENTRY, WHY and the like stand for
    what it fills in; a colon may be put in as well."""
    code = "".join(path.read_text() for path in (ROOT / "tools" / "hotplug").glob("*.cpp"))
    says = re.findall(r"\b(?:notice_?|complain_|hold_silent)\(([^;]*);", code)
    said = {text.strip(" :") for call in says for text in literals_in(call)} - {""}
    assert len(said) > 15
    rows = [first_code(row[0]) for row in table("### vus_hotplug")]
    documented = [text for text in rows if text and " " in text]
    assert {text for text in said if not any(text in row for row in documented)} == set()
    filled_in = r"\b(?:ENTRY|INPUT|DEVICE|DRIVER|FILE|WHY|N)\b|: "
    pieces = {piece.strip() for text in documented for piece in re.split(filled_in, text)} - {""}
    assert {piece for piece in pieces if not any(piece in text for text in said)} == set()


def test_log_lines_are_the_programs():
    texts = list(literals())
    named = [first_code(row[0]) for row in table("## Log lines worth searching for")]
    named = [text for text in named if text]
    assert len(named) > 40
    # The logging library writes this one for a failed CHECK.
    named.remove("Check failed: ")
    missing = [text for text in named if not any(text in literal for literal in texts)]
    assert missing == []


def test_status_texts_are_the_programs():
    texts = list(literals())
    named = [first_code(row[0]) for row in table("## Status texts")]
    named = [text for text in named if text and not text.startswith("Error=XML_ERROR_")]
    assert len(named) == 13
    assert [text for text in named if not any(text in literal for literal in texts)] == []


def test_every_path_and_property_is_documented():
    """paths.h is where the program names them; a new one needs a line in the reference."""
    header = (ROOT / "android" / "vus" / "paths.h").read_text()
    names = re.findall(r'k\w+\[\]\s*=\s*"([^"]+)"', header)
    assert len(names) > 15
    reference = REFERENCE.read_text()
    directory = "/data/system/usbdeviceconfig/"
    missing = [name for name in names if name.removeprefix(directory) not in reference]
    assert missing == []


def found(pattern):
    """What a pattern's groups match in the documents, with the document."""
    for document in DOCUMENTS:
        for match in re.findall(pattern, document.read_text()):
            yield document.name, match


def names_in(program):
    sources = (ROOT / "tests" / "unit" / program.removesuffix("_tests")).glob("*.cpp")
    text = "\n".join(path.read_text() for path in sources)
    return [".".join(names) for names in re.findall(r"^TEST\w*\((\w+),\s*(\w+)\)", text, flags=re.M)]


def test_examples_of_programs_run_a_test():
    examples = list(found(r"bin/(\w+_tests) .*--gtest_filter='([^']+)'"))
    assert examples
    empty = [(document, program, pattern) for document, (program, pattern) in examples
             if not fnmatch.filter(names_in(program), pattern)]
    assert empty == []


def test_examples_of_the_front_door_run_a_test():
    """./test SUITE NAME: the suite is one, and a unit test has the name."""
    suites = re.findall(r"^suite_(\w+)\(\)", (ROOT / "test").read_text(), flags=re.M)
    everything = [name for path in (ROOT / "tests" / "unit").iterdir() if path.is_dir()
                  for name in names_in(path.name + "_tests")]
    examples = list(found(r"(?m)(?:^    |`)\./test (\w+)(?: ([A-Z]\w+))?(?:`|$)"))
    placeholders = {"SUITE", "NAME"}
    named = [(suite, name) for _, (suite, name) in examples if suite not in placeholders]
    assert len(named) > 3
    assert [suite for suite, _ in named if suite not in suites] == []
    assert [name for _, name in named if name and name not in placeholders
            and not any(name in test for test in everything)] == []


def test_presets_are_there():
    presets = json.loads((ROOT / "CMakePresets.json").read_text())
    for command, kind in (("cmake", "configurePresets"), ("ctest", "testPresets")):
        known = {preset["name"] for preset in presets[kind] if not preset.get("hidden")}
        named = {name for _, name in found(rf"{command} --preset ([a-z-]+)")}
        assert named and named <= known


def test_scripts_are_there():
    named = {name for _, name in found(r"(?<![\w/])((?:scripts|device|bench|fuzz|tests)/[\w/-]+\.(?:sh|py|cpp|h|txt|dict))")}
    assert len(named) > 10
    assert [name for name in sorted(named) if not (ROOT / name).exists()] == []
