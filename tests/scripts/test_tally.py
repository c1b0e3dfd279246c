# SPDX-License-Identifier: Apache-2.0
"""The last line of ./test is believed by people and by CI: it must not lie."""

import json
import pathlib
import subprocess
import sys

TALLY = pathlib.Path(__file__).parents[2] / "scripts" / "tally.py"

LOG_WITH_SKIP = """\
[ RUN      ] Tree.NeedsRecordings
tests/unit/tree_test.cpp:12: Skipped
no recordings beside the checkout

[  SKIPPED ] Tree.NeedsRecordings (0 ms)
"""


def gtest(name, result="COMPLETED", status="RUN", failure=None):
    test = {"name": name, "status": status, "result": result}
    if failure:
        test["failures"] = [{"failure": failure, "type": ""}]
    return test


def leave_run(directory, run, tests=None, status=0, log="", suite="unit"):
    folder = directory / suite
    folder.mkdir(exist_ok=True)
    (folder / f"{run}.status").write_text(f"{status}\n")
    (folder / f"{run}.log").write_text(log)
    if tests is not None:
        report = {"testsuites": [{"name": "Tree", "testsuite": tests}]}
        (folder / f"{run}.json").write_text(json.dumps(report))


def tally(directory, *options):
    suites = sorted(path for path in directory.iterdir() if path.is_dir())
    result = subprocess.run([sys.executable, TALLY, *options, *suites],
                            capture_output=True, text=True, check=False)
    lines = result.stdout.splitlines()
    return result.returncode, lines[-1] if lines else result.stderr, result.stdout


def test_passed_tests_are_counted(tmp_path):
    leave_run(tmp_path, "a_tests", [gtest("One"), gtest("Two")])
    leave_run(tmp_path, "b_tests", [gtest("One")], suite="asan")
    assert tally(tmp_path)[:2] == (0, "3 passed, 0 failed")


def test_failed_test_is_named_with_its_message(tmp_path):
    leave_run(tmp_path, "a_tests", [gtest("One"), gtest("Two", failure="x is 1")], status=1)
    status, last, output = tally(tmp_path)
    assert (status, last) == (1, "1 passed, 1 failed")
    assert "FAILED  unit: a_tests: Tree.Two\n        x is 1" in output


def test_crash_counts_as_failed(tmp_path):
    leave_run(tmp_path, "a_tests", [gtest("One")])
    leave_run(tmp_path, "b_tests", None, status=139)
    status, last, output = tally(tmp_path)
    assert (status, last) == (1, "1 passed, 1 failed")
    assert "no report: b_tests was ended by signal 11" in output


def test_sanitizers_words_are_shown(tmp_path):
    log = "[ RUN      ] Tree.One\n==7==ERROR: AddressSanitizer: heap-use-after-free\n" + "x\n" * 90
    leave_run(tmp_path, "a_tests", None, status=1, log=log)
    assert "        ==7==ERROR: AddressSanitizer: heap-use-after-free\n" in tally(tmp_path)[2]


def test_time_out_is_told(tmp_path):
    leave_run(tmp_path, "b_tests", None, status=124)
    assert "b_tests ran out of time" in tally(tmp_path)[2]


def test_failure_after_the_tests_counts(tmp_path):
    """A sanitizer's leak report at exit, for one."""
    leave_run(tmp_path, "a_tests", [gtest("One")], status=23)
    assert tally(tmp_path)[:2] == (1, "1 passed, 1 failed")


def test_broken_report_counts_as_failed(tmp_path):
    leave_run(tmp_path, "a_tests", None, status=0)
    (tmp_path / "unit" / "a_tests.json").write_text('{"testsuites": [')
    assert tally(tmp_path)[:2] == (1, "0 passed, 1 failed")


def test_no_test_at_all_is_a_failure(tmp_path):
    assert tally(tmp_path)[:2] == (1, "0 passed, 1 failed")
    leave_run(tmp_path, "a_tests", [])
    assert tally(tmp_path)[:2] == (1, "0 passed, 1 failed")


def test_filter_may_leave_a_program_without_tests_but_not_all(tmp_path):
    leave_run(tmp_path, "a_tests", [gtest("One", result="SUPPRESSED", status="NOTRUN")])
    assert tally(tmp_path, "--filtered")[:2] == (1, "0 passed, 1 failed")
    leave_run(tmp_path, "b_tests", [gtest("One")])
    assert tally(tmp_path, "--filtered")[:2] == (0, "1 passed, 0 failed")
    assert tally(tmp_path)[:2] == (1, "1 passed, 1 failed")


def test_skip_is_counted_apart_and_named_with_its_reason(tmp_path):
    leave_run(tmp_path, "a_tests", [gtest("One"), gtest("NeedsRecordings", result="SKIPPED")],
              log=LOG_WITH_SKIP)
    status, last, output = tally(tmp_path)
    assert (status, last) == (0, "1 passed, 0 failed, 1 skipped")
    assert ("SKIPPED unit: a_tests: Tree.NeedsRecordings: no recordings beside the checkout"
            in output)


def test_disabled_test_is_a_skip(tmp_path):
    leave_run(tmp_path, "a_tests",
              [gtest("One"), gtest("DISABLED_Two", result="SUPPRESSED", status="NOTRUN")])
    assert tally(tmp_path)[1] == "1 passed, 0 failed, 1 skipped"


def test_strict_fails_on_a_skip_that_is_not_expected(tmp_path):
    leave_run(tmp_path, "a_tests", [gtest("One"), gtest("NeedsRecordings", result="SKIPPED")],
              log=LOG_WITH_SKIP)
    expected = tmp_path / "expected.txt"
    expected.write_text("# none\n")
    options = ["--strict-skips", "--expected-skips", expected]
    assert tally(tmp_path, *options)[:2] == (1, "1 passed, 1 failed")
    expected.write_text("unit: a_tests: Tree.Needs*\n")
    assert tally(tmp_path, *options)[:2] == (0, "1 passed, 0 failed, 1 skipped")


def test_pytest_report(tmp_path):
    folder = tmp_path / "device"
    folder.mkdir()
    (folder / "device.status").write_text("1\n")
    (folder / "device.xml").write_text(
        '<testsuites><testsuite>'
        '<testcase classname="tests.device.test_a" name="test_one"/>'
        '<testcase classname="tests.device.test_a" name="test_two">'
        '<failure message="assert 1 == 2">long</failure></testcase>'
        '<testcase classname="tests.device.test_a" name="test_three">'
        '<skipped message="no emulator"/></testcase>'
        '<testcase classname="tests.device.test_a" name="test_four">'
        '<error message="fixture broke"/></testcase>'
        '</testsuite></testsuites>')
    status, last, output = tally(tmp_path)
    assert (status, last) == (1, "1 passed, 2 failed, 1 skipped")
    assert "tests.device.test_a.test_two\n        assert 1 == 2" in output
    assert "test_three: no emulator" in output


def test_check_without_a_report_is_one_test_when_it_says_so(tmp_path):
    leave_run(tmp_path, "format", None, status=0)
    assert tally(tmp_path)[1] == "0 passed, 1 failed"
    (tmp_path / "unit" / "format.single").write_text("")
    assert tally(tmp_path)[1] == "1 passed, 0 failed"
    (tmp_path / "unit" / "format.status").write_text("1\n")
    assert tally(tmp_path)[1] == "0 passed, 1 failed"
