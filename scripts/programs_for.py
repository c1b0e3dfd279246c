#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Prints the test programs that may hold a test whose name contains FILTER.

Looks at the sources, before anything is built. A program too many costs time, one too few would
lose tests: so where names come from elsewhere (parameters, macros of the test's own) any mention of
the filter's words will do, and a filter that is more than a part of a name means every program.

usage: programs_for.py [--with-threads] DIRECTORY [FILTER]

DIRECTORY holds a directory of sources for each program, NAME for NAME_tests. With --with-threads
only those are printed that ThreadSanitizer's tree has.
"""

import pathlib
import re
import sys

TEST = re.compile(r"^(?:TEST|TEST_F|TEST_P|TYPED_TEST|TYPED_TEST_P)\(\s*(\w+),\s*(\w+)\)", re.M)
# Names of parameters that only the program knows; parameters without names of their own are numbers.
COMPUTED = re.compile(r"ValuesIn\(\w+\(\)\),")
GENERATED = re.compile(r"\b(?:INSTANTIATE_\w+|TEST_P|TYPED_TEST\w*)\(|^\s*#\s*define\b.*\bTEST", re.M)


def may_hold(directory, text):
    sources = "\n".join(path.read_text(encoding="utf-8", errors="replace")
                        for path in sorted([*directory.glob("*.cpp"), *directory.glob("*.h")]))
    if any(text in f"{suite}.{name}" for suite, name in TEST.findall(sources)):
        return True
    if COMPUTED.search(sources):
        return True
    # Prefix/Suite.Name/Parameter: the parts may be anywhere, and a number need not be.
    parts = [part for part in re.split(r"[./]", text) if part and not part.isdigit()]
    return bool(GENERATED.search(sources)) and all(part in sources for part in parts)


def has_threads(directory):
    build = directory / "CMakeLists.txt"
    return not build.exists() or "\nvus_without_threads()" not in build.read_text(encoding="utf-8")


def programs(tests, text, with_threads):
    directories = sorted(path for path in tests.iterdir() if any(path.glob("*.cpp")))
    if with_threads:
        directories = [path for path in directories if has_threads(path)]
    if text and re.fullmatch(r"[\w./]+", text):
        directories = [path for path in directories if may_hold(path, text)]
    return [f"{path.name}_tests" for path in directories]


def main(arguments):
    with_threads = arguments[:1] == ["--with-threads"]
    tests, text = (*arguments[with_threads:], "")[:2]
    print("".join(name + "\n" for name in programs(pathlib.Path(tests), text, with_threads)), end="")


if __name__ == "__main__":
    main(sys.argv[1:])
