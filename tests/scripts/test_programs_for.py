# SPDX-License-Identifier: Apache-2.0
"""./test unit NAME builds the programs that hold a matching test, and loses none."""

import pathlib
import subprocess
import sys

import pytest

SCRIPT = pathlib.Path(__file__).parents[2] / "scripts" / "programs_for.py"

SOURCES = {
    "plain/a_test.cpp": "TEST_F(MapTest, ReadsAll) {}\nTEST(Other,\n     BrokenLine) {}\n",
    "table/b_test.cpp": ('struct Row rows[] = {{"EmptyFile", ""}};\n'
                         "TEST_P(LoaderTest, Answers) {}\n"
                         "INSTANTIATE_TEST_SUITE_P(All, LoaderTest, ValuesIn(rows));\n"),
    "files/c_test.cpp": ("TEST_P(TreeTest, Is) {}\n"
                         "INSTANTIATE_TEST_SUITE_P(All, TreeTest, ValuesIn(Trees()));\n"),
    "own/d_test.cpp": "#define CASE(name) TEST_F(OwnTest, Of##name)\nCASE(Thing) {}\n",
    "not_a_program/README.md": "MapTest",
}
ALL = ["files_tests", "own_tests", "plain_tests", "table_tests"]


@pytest.fixture
def tests(tmp_path):
    for name, text in SOURCES.items():
        (tmp_path / name).parent.mkdir(exist_ok=True)
        (tmp_path / name).write_text(text)
    return tmp_path


def programs(tests, *text):
    return subprocess.run([sys.executable, SCRIPT, tests, *text], capture_output=True, text=True,
                          check=True).stdout.split()


@pytest.mark.parametrize("text, found", [
    ("MapTest", "plain_tests"),
    ("MapTest.ReadsAll", "plain_tests"),
    ("Test.Reads", "plain_tests"),
    ("BrokenLine", "plain_tests"),
    ("LoaderTest", "table_tests"),
    ("EmptyFile", "table_tests"),
    ("All/LoaderTest.Answers/0", "table_tests"),
    ("OwnTest", "own_tests"),
    ("Thing", "own_tests"),
])
def test_program_with_a_matching_test_is_found(tests, text, found):
    # The names of the trees are known to the program alone.
    assert programs(tests, text) == ["files_tests", found]


@pytest.mark.parametrize("text", ["", "A*B", "Map:Loader", "-Map"])
def test_what_is_no_part_of_a_name_means_every_program(tests, text):
    assert programs(tests, text) == ALL


def test_without_a_filter_every_program(tests):
    assert programs(tests) == ALL
