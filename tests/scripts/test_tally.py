# SPDX-License-Identifier: Apache-2.0
"""The last line of ./test is believed by people and by CI: it must not lie."""

import pathlib
import subprocess
import sys
from xml.sax.saxutils import quoteattr

import pytest

TALLY = pathlib.Path(__file__).parents[2] / "scripts" / "tally.py"


REASON = "tests/unit/tree_test.cpp:12\nno recordings beside the checkout\n"


def gtest(name, status="run", failure=None, skipped=None):
    """A test case as googletest writes it."""
    inner = ""
    if failure:
        inner = f'<failure message={quoteattr(failure)} type=""><![CDATA[x]]></failure>'
    if skipped:
        inner = f"<skipped message={quoteattr(skipped)}/>"
    return f'<testcase name="{name}" status="{status}" classname="Tree">{inner}</testcase>'


class Results:
    """What a ./test leaves: build/results, with the folder of a suite in it."""

    def __init__(self, directory):
        self.directory = directory
        self.ends = {}

    def leave_run(self, run, tests=None, end="", log="", suite="unit"):
        """`end` as CTest words it in its list of failures; none is success."""
        folder = self.directory / suite
        folder.mkdir(exist_ok=True)
        self.ends.setdefault(suite, {})[run] = (end, log)
        if tests is not None:
            (folder / f"{run}.xml").write_text(
                f'<?xml version="1.0" encoding="UTF-8"?>\n<testsuites><testsuite name="Tree">'
                f'{"".join(tests)}</testsuite></testsuites>')
        self._write_ctest(folder, self.ends[suite])

    @staticmethod
    def _write_ctest(folder, ends):
        cases, failures = [], []
        for number, (run, (end, log)) in enumerate(ends.items(), 1):
            status, inner = "run", ""
            if end == "Not Run":
                status, inner = "notrun", '<skipped message="Unable to find executable"/>'
            elif end == "Skipped":
                status, inner = "notrun", '<skipped message="SKIP_RETURN_CODE=5"/>'
            elif end:
                status, inner = "fail", '<failure message=""/>'
            if end and end != "Skipped":
                failures.append(f"\t  {number} - {run} ({end})")
            cases.append(f'<testcase name="{run}" classname="{run}" status="{status}">{inner}'
                         f"<system-out>{log}</system-out></testcase>")
        (folder / "ctest.xml").write_text(f'<testsuite name="(empty)">{"".join(cases)}</testsuite>')
        (folder / "ctest.log").write_text("The following tests FAILED:\n" + "\n".join(failures))

    def tally(self, *options):
        suites = sorted(path for path in self.directory.iterdir() if path.is_dir())
        result = subprocess.run([sys.executable, TALLY, *options, *suites],
                                capture_output=True, text=True, check=False)
        lines = result.stdout.splitlines()
        return result.returncode, lines[-1] if lines else result.stderr, result.stdout


@pytest.fixture
def results(tmp_path):
    return Results(tmp_path)


def test_passed_tests_are_counted(results):
    results.leave_run("a_tests", [gtest("One"), gtest("Two")])
    results.leave_run("b_tests", [gtest("One")], suite="asan")
    assert results.tally()[:2] == (0, "3 passed, 0 failed")


def test_failed_test_is_named_with_its_message(results):
    results.leave_run("a_tests", [gtest("One"), gtest("Two", failure="x is 1")], end="Failed")
    status, last, output = results.tally()
    assert (status, last) == (1, "1 passed, 1 failed")
    assert "FAILED  unit: a_tests: Tree.Two\n        x is 1" in output


def test_crash_counts_as_failed(results):
    results.leave_run("a_tests", [gtest("One")])
    results.leave_run("b_tests", None, end="SEGFAULT")
    status, last, output = results.tally()
    assert (status, last) == (1, "1 passed, 1 failed")
    assert "no report: b_tests was ended: SEGFAULT" in output


def test_sanitizers_words_are_shown(results):
    log = "[ RUN      ] Tree.One\n==7==ERROR: AddressSanitizer: heap-use-after-free\n" + "x\n" * 90
    results.leave_run("a_tests", None, end="Subprocess aborted", log=log)
    assert "        ==7==ERROR: AddressSanitizer: heap-use-after-free\n" in results.tally()[2]


def test_time_out_is_told(results):
    results.leave_run("b_tests", None, end="Timeout")
    assert "b_tests ran out of time" in results.tally()[2]


def test_failure_after_the_tests_counts(results):
    """A sanitizer's leak report at exit, for one."""
    results.leave_run("a_tests", [gtest("One")], end="Failed")
    assert results.tally()[:2] == (1, "1 passed, 1 failed")


def test_broken_report_counts_as_failed(results):
    results.leave_run("a_tests", None)
    (results.directory / "unit" / "a_tests.xml").write_text("<testsuites><testsuite>")
    assert results.tally()[:2] == (1, "0 passed, 1 failed")


def test_no_test_at_all_is_a_failure(results):
    assert results.tally()[:2] == (1, "0 passed, 1 failed")
    results.leave_run("a_tests", [])
    assert results.tally()[:2] == (1, "0 passed, 1 failed")


def test_filter_may_leave_a_program_without_tests_but_not_all(results):
    results.leave_run("a_tests", [gtest("One", status="notrun")])
    assert results.tally("--filtered")[:2] == (1, "0 passed, 1 failed")
    results.leave_run("b_tests", [gtest("One")])
    assert results.tally("--filtered")[:2] == (0, "1 passed, 0 failed")
    assert results.tally()[:2] == (1, "1 passed, 1 failed")


def test_skip_is_counted_apart_and_named_with_its_reason(results):
    results.leave_run("a_tests", [gtest("One"), gtest("NeedsRecordings", skipped=REASON)])
    status, last, output = results.tally()
    assert (status, last) == (0, "1 passed, 0 failed, 1 skipped")
    assert ("SKIPPED unit: a_tests: Tree.NeedsRecordings: no recordings beside the checkout"
            in output)


def test_disabled_test_is_a_skip(results):
    results.leave_run("a_tests", [gtest("One"), gtest("DISABLED_Two", status="notrun")])
    assert results.tally()[1] == "1 passed, 0 failed, 1 skipped"


def test_strict_fails_on_a_skip_that_is_not_expected(results):
    results.leave_run("a_tests", [gtest("One"), gtest("NeedsRecordings", skipped=REASON)])
    expected = results.directory / "expected.txt"
    expected.write_text("# none\n")
    options = ["--strict-skips", "--expected-skips", expected]
    assert results.tally(*options)[:2] == (1, "1 passed, 1 failed")
    expected.write_text("unit: a_tests: Tree.Needs*\n")
    assert results.tally(*options)[:2] == (0, "1 passed, 0 failed, 1 skipped")


def test_check_that_was_not_run_has_not_passed(results):
    results.leave_run("policy", None, end="Skipped", log="reading\nnot run: no tree\n", suite="format")
    results.leave_run("style", None, suite="format")
    (results.directory / "format" / "single").touch()
    assert results.tally()[:2] == (0, "1 passed, 0 failed, 1 skipped")
    assert "SKIPPED format: policy: not run: no tree" in results.tally()[2]
    expected = results.directory / "expected.txt"
    expected.write_text("# none\n")
    options = ["--strict-skips", "--expected-skips", expected]
    assert results.tally(*options)[:2] == (1, "1 passed, 1 failed")


def test_pytest_report(results):
    results.leave_run("test_a", None, end="Failed", suite="device")
    (results.directory / "device" / "test_a.xml").write_text(
        '<testsuites><testsuite>'
        '<testcase classname="tests.device.test_a" name="test_one"/>'
        '<testcase classname="tests.device.test_a" name="test_two">'
        '<failure message="assert 1 == 2">long</failure></testcase>'
        '<testcase classname="tests.device.test_a" name="test_three">'
        '<skipped message="no emulator"/></testcase>'
        '<testcase classname="tests.device.test_a" name="test_four">'
        '<error message="fixture broke"/></testcase>'
        '</testsuite></testsuites>')
    status, last, output = results.tally()
    assert (status, last) == (1, "1 passed, 2 failed, 1 skipped")
    assert "tests.device.test_a.test_two\n        assert 1 == 2" in output
    assert "test_three: no emulator" in output


def test_pytest_that_selected_nothing(results):
    results.leave_run("test_a", [], end="Skipped", suite="device")
    assert results.tally()[:2] == (1, "0 passed, 1 failed")
    results.leave_run("test_b", [gtest("One")], suite="device")
    assert results.tally("--filtered")[:2] == (0, "1 passed, 0 failed")


def test_check_without_a_report_is_one_test_when_it_says_so(results):
    results.leave_run("format", None)
    assert results.tally()[1] == "0 passed, 1 failed"
    (results.directory / "unit" / "single").write_text("")
    assert results.tally()[1] == "1 passed, 0 failed"
    results.leave_run("format", None, end="Failed")
    assert results.tally()[1] == "0 passed, 1 failed"


def test_program_that_is_not_there_counts_as_failed(results):
    results.leave_run("a_tests", [gtest("One")])
    results.leave_run("b_tests", None, end="Not Run")
    status, last, output = results.tally()
    assert (status, last) == (1, "1 passed, 1 failed")
    assert "b_tests could not be run" in output


def test_step_before_the_programs_counts_as_failed(results):
    results.leave_run("a_tests", [gtest("One")])
    (results.directory / "asan").mkdir()
    (results.directory / "asan" / "build.failed").write_text("")
    assert results.tally()[:2] == (1, "1 passed, 1 failed")


def test_suite_whose_report_is_missing_counts_as_failed(results):
    results.leave_run("a_tests", [gtest("One")])
    (results.directory / "tsan").mkdir()
    assert results.tally()[:2] == (1, "1 passed, 1 failed")


def test_output_of_each_program_is_left_apart(results):
    results.leave_run("a_tests", [gtest("One")], log="all is well")
    results.leave_run("b_tests", None, end="SEGFAULT", log="the last words")
    folder = results.directory / "unit"
    shown = subprocess.run([sys.executable, TALLY, "--split", folder],
                           capture_output=True, text=True, check=True).stdout
    assert shown == "b_tests was ended: SEGFAULT\nthe last words\n"
    assert (folder / "a_tests.log").read_text() == "all is well"
