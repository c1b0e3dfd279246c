#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Adds up what the test programs reported and prints one last line.

DIRECTORY is named for its suite. Every run leaves there a NAME.status (its exit status), a NAME.log (its
output) and, unless it could not run, a report: NAME.json of googletest or NAME.xml of
pytest. A run without a report, with one that shows no test, or that fails although every
test in its report passed, counts as one failed test: nothing is lost because a program
crashed.

usage: tally.py [--filtered] [--expected-skips FILE] [--strict-skips] DIRECTORY...
       tally.py --excerpt LOG

  --filtered      a run that executed no test is in order if another one did
  --strict-skips  a skip whose name matches no line of FILE counts as failed
  --excerpt       print what a person wants to see of a program's output
"""

import argparse
import fnmatch
import json
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


def gtest_skip_reasons(log):
    """googletest's report does not say why a test was skipped; its output does."""
    reasons = {}
    pattern = r"^\S*: Skipped\n(.*?)\n+\[  SKIPPED \] (\S+)"
    for reason, name in re.findall(pattern, log, re.MULTILINE | re.DOTALL):
        reasons[name] = " ".join(reason.split())
    return reasons


def gtest_outcome(test):
    if test.get("failures"):
        return FAILED, test["failures"][0]["failure"]
    if test["result"] == "COMPLETED":
        return PASSED, ""
    if test["result"] == "SKIPPED":
        return SKIPPED, ""
    return None, ""  # not selected by the filter


def gtest_cases(report, log):
    reasons = gtest_skip_reasons(log)
    for group in json.loads(report)["testsuites"]:
        for test in group["testsuite"]:
            name = f"{group['name']}.{test['name']}"
            if test["status"] == "NOTRUN" and test["name"].startswith("DISABLED_"):
                yield name, SKIPPED, "disabled"
                continue
            outcome, text = gtest_outcome(test)
            if outcome:
                yield name, outcome, text or reasons.get(name, "")


def pytest_cases(report, _log):
    for test in ElementTree.fromstring(report).iter("testcase"):
        name = f"{test.get('classname')}.{test.get('name')}".lstrip(".")
        outcome, text = PASSED, ""
        for child in test:
            if child.tag in ("failure", "error"):
                outcome, text = FAILED, child.get("message") or child.text or ""
                break
            if child.tag == "skipped":
                outcome, text = SKIPPED, child.get("message") or ""
        yield name, outcome, text


READERS = {".json": gtest_cases, ".xml": pytest_cases}


def read_log(status_file):
    log_file = status_file.with_suffix(".log")
    return log_file.read_text(errors="replace") if log_file.exists() else ""


def read_report(status_file, log):
    """The tests of one run as (name, outcome, text), or None without a usable report."""
    for suffix, reader in READERS.items():
        report = status_file.with_suffix(suffix)
        if report.exists():
            try:
                return list(reader(report.read_text(errors="replace"), log))
            except (ValueError, KeyError, ElementTree.ParseError):
                return None
    return None


# What a sanitizer or a dying program says first; the end of its output seldom tells.
TROUBLE = re.compile(r"ERROR: \w+Sanitizer|WARNING: ThreadSanitizer|: runtime error: |"
                     r"terminate called|Check failed|private root: ")


def excerpt(log, length=12):
    lines = log.splitlines()
    for number, line in enumerate(lines):
        if TROUBLE.search(line):
            return lines[number:number + length]
    return lines[-length:]


def describe_status(status):
    if status == 124:
        return "ran out of time"
    if status > 128:
        return f"was ended by signal {status - 128}"
    return f"ended with status {status}"


def run_cases(status_file, filtered):
    suite, run = status_file.parent.name, status_file.stem
    status = int(status_file.read_text().strip() or "1")
    log = read_log(status_file)
    tests = read_report(status_file, log)
    # A check that is one test by itself (formatting, the benchmarks) has no report.
    if tests is None and status_file.with_suffix(".single").exists():
        return [Case(suite, run, FAILED if status else PASSED, log)]
    end = "\n".join([f"{run} {describe_status(status)}", *excerpt(log)])
    if tests is None:
        return [Case(suite, run, FAILED, "no report: " + end)]
    cases = [Case(suite, f"{run}: {name}", outcome, text) for name, outcome, text in tests]
    no_test_is_fine = filtered and status in (0, 5)  # 5: pytest selected nothing
    if not cases and not no_test_is_fine:
        cases.append(Case(suite, run, FAILED, f"{run} executed no test"))
    elif status != 0 and not any(c.outcome == FAILED for c in cases) and not (
            not cases and no_test_is_fine):
        cases.append(Case(suite, run, FAILED, end))
    return cases


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
    parser.add_argument("--excerpt", type=pathlib.Path)
    parser.add_argument("directories", type=pathlib.Path, nargs="*")
    options = parser.parse_args(arguments)

    if options.excerpt:
        print("\n".join(excerpt(options.excerpt.read_text(errors="replace"), 40)))
        return 0
    cases = []
    for directory in options.directories:
        for status_file in sorted(directory.glob("*.status")):
            cases += run_cases(status_file, options.filtered)
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
