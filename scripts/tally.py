#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Adds up what the tests reported and prints one last line.

DIRECTORY is named for its suite. A suite that was run leaves there ctest.xml, the report of CTest
with a test case for each program, ctest.log, what it printed, and for each program NAME.xml, with
a test case for each of the program's own tests. All are JUnit's XML. A program without a report,
with one that shows no test, or that fails although every test in its report passed, counts as one
failed test: nothing is lost because a program crashed. Where a file named single lies, every
program is one test and leaves no report; one that CTest calls skipped is no passed test. Each file NAME.failed is a step that failed before any
program was run, and counts as one failed test.

usage: tally.py [--filtered] [--expected-skips FILE] [--strict-skips] DIRECTORY...
       tally.py --split DIRECTORY

  --filtered      a program that executed no test is in order if another one did
  --strict-skips  a skip whose name matches no line of FILE counts as failed
  --split         leave each program's output beside the report as NAME.log, and print what a
                  person wants to see of those that failed
"""

import argparse
import fnmatch
import pathlib
import re
import sys
import xml.etree.ElementTree as ElementTree
from dataclasses import dataclass

PASSED, FAILED, SKIPPED = "passed", "failed", "skipped"


@dataclass
class Case:
    suite: str
    name: str
    outcome: str
    text: str = ""
    output: str = ""


def outcome_of(test):
    """The outcome and its text, or None for a test that was not selected."""
    for child in test:
        if child.tag in ("failure", "error"):
            return FAILED, child.get("message") or child.text or ""
    for child in test:
        if child.tag == "skipped":
            # googletest begins with the place, which is of no interest.
            reason = re.sub(r"^\S+:\d+\n", "", child.get("message") or child.text or "")
            return SKIPPED, " ".join(reason.split())
    if test.get("status") == "fail":
        return FAILED, ""
    if test.get("status") == "disabled":
        return SKIPPED, "disabled"
    if test.get("status") == "notrun":
        return (SKIPPED, "disabled") if test.get("name", "").startswith("DISABLED_") else (None, "")
    return PASSED, ""


def read_junit(path):
    """The test cases of a report, or None if it is not there or broken."""
    try:
        root = ElementTree.fromstring(path.read_text(encoding="utf-8", errors="replace"))
    except (OSError, ElementTree.ParseError):
        return None
    cases = []
    for test in root.iter("testcase"):
        outcome, text = outcome_of(test)
        if outcome:
            name = f"{test.get('classname')}.{test.get('name')}".lstrip(".")
            output = test.findtext("system-out") or ""
            cases.append(Case("", name, outcome, text, output))
    return cases


@dataclass
class Run:
    """One program: how it ended ("" is well), and what it printed."""
    name: str
    end: str
    output: str
    selected_nothing: bool = False


# CTest's report does not say how a program failed; the list at the end of its output does.
FAILED_LINE = re.compile(r"^\s*\d+ - (\S+) \((.+)\)$", re.M)
ENDS = {"Timeout": "ran out of time", "Failed": "ended with another status than 0",
        "Not Run": "could not be run"}


def read_runs(directory):
    cases = read_junit(directory / "ctest.xml")
    if cases is None:
        return None
    log = directory / "ctest.log"
    ends = dict(FAILED_LINE.findall(log.read_text(errors="replace"))) if log.exists() else {}
    runs = []
    for case in cases:
        name = case.name.split(".")[-1]
        nothing = case.outcome == SKIPPED and case.text.startswith("SKIP_RETURN_CODE")
        end = ends.get(name, "Failed") if case.outcome != PASSED and not nothing else ""
        runs.append(Run(name, ENDS.get(end, end and f"was ended: {end}"), case.output, nothing))
    return runs


# What a sanitizer or a dying program says first; the end of its output seldom tells.
TROUBLE = re.compile(r"ERROR: \w+Sanitizer|WARNING: ThreadSanitizer|: runtime error: |"
                     r"terminate called|Check failed|private root: ")


def excerpt(log, length=12):
    lines = log.splitlines()
    for number, line in enumerate(lines):
        if TROUBLE.search(line):
            return lines[number:number + length]
    return lines[-length:]


def run_cases(directory, run, filtered):
    suite = directory.name
    if (directory / "single").exists():
        # A check that says that it did not run has said why in its last line.
        if run.selected_nothing:
            return [Case(suite, run.name, SKIPPED, (run.output.strip().splitlines() or [""])[-1])]
        return [Case(suite, run.name, FAILED if run.end else PASSED, run.output)]
    tests = read_junit(directory / f"{run.name}.xml")
    end = "\n".join([f"{run.name} {run.end or 'ended well'}", *excerpt(run.output)])
    if tests is None:
        return [Case(suite, run.name, FAILED, "no report: " + end)]
    cases = [Case(suite, f"{run.name}: {test.name}", test.outcome, test.text) for test in tests]
    if run.end and not any(case.outcome == FAILED for case in cases):
        cases.append(Case(suite, run.name, FAILED, end))
    elif not cases and not filtered:
        cases.append(Case(suite, run.name, FAILED, f"{run.name} executed no test"))
    return cases


def suite_cases(directory, filtered):
    steps = sorted(directory.glob("*.failed"))
    cases = [Case(directory.name, path.stem, FAILED, "see above") for path in steps]
    runs = read_runs(directory)
    if runs is None and not steps:
        return [Case(directory.name, "ctest", FAILED, "no report of its tests")]
    for run in runs or []:
        cases += run_cases(directory, run, filtered)
    return cases


def split(directory):
    for run in read_runs(directory) or []:
        (directory / f"{run.name}.log").write_text(run.output)
        if run.end:
            print(f"{run.name} {run.end}", *excerpt(run.output, 40), sep="\n")


def forbid_skips(cases, expected):
    for case in cases:
        full_name = f"{case.suite}: {case.name}"
        if case.outcome == SKIPPED and not any(fnmatch.fnmatchcase(full_name, p) for p in expected):
            case.outcome, case.text = FAILED, f"skipped unexpectedly: {case.text}"


def expected_skips(path):
    if not path or not pathlib.Path(path).exists():
        return []
    lines = (line.strip() for line in pathlib.Path(path).read_text().splitlines())
    return [line for line in lines if line and not line.startswith("#")]


def count(cases, outcome):
    return sum(1 for case in cases if case.outcome == outcome)


def summary(cases):
    text = f"{count(cases, PASSED)} passed, {count(cases, FAILED)} failed"
    skipped = count(cases, SKIPPED)
    return f"{text}, {skipped} skipped" if skipped else text


def print_details(cases):
    for case in cases:
        if case.outcome == FAILED:
            print(f"FAILED  {case.suite}: {case.name}")
            for line in case.text.strip().splitlines()[:14]:
                print(f"        {line}")
    for case in cases:
        if case.outcome == SKIPPED:
            print(f"SKIPPED {case.suite}: {case.name}: {case.text or 'no reason given'}")


def main(arguments):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--filtered", action="store_true")
    parser.add_argument("--expected-skips")
    parser.add_argument("--strict-skips", action="store_true")
    parser.add_argument("--split", action="store_true")
    parser.add_argument("directories", type=pathlib.Path, nargs="*")
    options = parser.parse_args(arguments)

    if options.split:
        for directory in options.directories:
            split(directory)
        return 0
    cases = []
    for directory in options.directories:
        cases += suite_cases(directory, options.filtered)
    if not cases:
        cases = [Case("all", "tests", FAILED, "no test was executed")]
    if options.strict_skips:
        forbid_skips(cases, expected_skips(options.expected_skips))

    print_details(cases)
    for suite in dict.fromkeys(case.suite for case in cases):
        own = [case for case in cases if case.suite == suite]
        # Worded unlike the last line, which alone is to be taken for the sum.
        print(f"  {suite:<10} {count(own, PASSED):>5} of {len(own)}")
    print(summary(cases))
    return 1 if count(cases, FAILED) else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
