# SPDX-License-Identifier: Apache-2.0
"""./test unit NAME builds the programs that hold a matching test, and loses none."""

import pathlib
import re
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
                         "INSTANTIATE_TEST_SUITE_P(All, TreeTest, ValuesIn(Trees()), NameOf);\n"),
    "numbers/e_test.cpp": ("TEST_P(SumTest, Adds) {}\n"
                           "INSTANTIATE_TEST_SUITE_P(All, SumTest, ValuesIn(Sums()));\n"),
    "own/d_test.cpp": "#define CASE(name) TEST_F(OwnTest, Of##name)\nCASE(Thing) {}\n",
    "not_a_program/README.md": "MapTest",
}
ALL = ["files_tests", "numbers_tests", "own_tests", "plain_tests", "table_tests"]


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
    ("SumTest", "numbers_tests"),
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


@pytest.mark.parametrize("text, found", [([], ["files_tests", "numbers_tests", "own_tests", "table_tests"]), (["MapTest"], ["files_tests"])])
def test_program_without_threads_is_not_in_the_tree_of_thread_sanitizer(tests, text, found):
    (tests / "plain" / "CMakeLists.txt").write_text("# ...\nvus_without_threads()\nvus_add_test(plain_tests vus)\n")
    (tests / "own" / "CMakeLists.txt").write_text("# not vus_without_threads()\nvus_add_test(own_tests vus)\n")
    arguments = [sys.executable, SCRIPT, "--with-threads", tests, *text]
    assert subprocess.run(arguments, capture_output=True, text=True, check=True).stdout.split() == found


def test_program_without_threads_starts_none():
    directories = [path.parent for path in (SCRIPT.parents[1] / "tests" / "unit").glob("*/CMakeLists.txt")
                   if "vus_without_threads()" in path.read_text()]
    assert directories
    for directory in directories:
        sources = "".join(path.read_text() for path in [*directory.glob("*.cpp"), *directory.glob("*.h")])
        assert not re.search(r"std::(thread|async|jthread)|pthread_create", sources), directory
