#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Makes mistakes in the analyser, one at a time, and has the prover find each.

usage: prove_mutants.py BUILD [SEED]

BUILD is a build tree with analyser_answers in it. What the prover finds nothing wrong with, it does
not prove anything about: a mutant that survives fails.
"""

import json
import multiprocessing
import pathlib
import random
import shlex
import subprocess
import sys
import tempfile

import prove_analyser

ROOT = pathlib.Path(__file__).resolve().parents[2]
WORKBENCH = ROOT / "tools" / "workbench"
TARGET = "bin/analyser_answers"
PAIRS, TRIES = 100, 10
# (what is wrong, file, text, what it becomes)
MUTANTS = [
    ("nothing", "closed_form.cpp", "", ""),
    ("the first whole vendor counts, not the highest", "closed_form.cpp",
     "highestWhole_ = rule.vendor;", "if (highestWhole_ < 0) highestWhole_ = rule.vendor;"),
    ("a match needs class and ids", "closed_form.cpp",
     "(classMatches || idsMatch)", "(classMatches && idsMatch)"),
    ("products are matched the wrong way round", "closed_form.cpp",
     "|| holds(listed->products, ids.product)", "|| !holds(listed->products, ids.product)"),
    ("a product that no device has is a witness", "closed_form.cpp",
     "return lowest <= kLastId ? std::optional(Ids{vendor, lowest}) : std::nullopt;",
     "return Ids{vendor, lowest};"),
    ("a vendor that no device has makes a difference", "difference.cpp",
     "if (vendor <= kLastId) addVendor(vendor);", "addVendor(vendor);"),
    ("a product that no device has makes a difference", "difference.cpp",
     "if (product <= kLastId && !(", "if (!("),
    ("combinations are forgotten", "difference.cpp",
     "        addCombinations();\n        std::stable_sort", "        std::stable_sort"),
    ("admitted and refused are swapped", "difference.cpp", "changed > 0,", "changed < 0,"),
    ("classes are compared by the new policy alone", "difference.cpp",
     "{{before_.listsClass(code), after_", "{{after_.listsClass(code), after_"),
    ("a product that no device has is no dead rule", "dead_rules.cpp",
     "if (!isNew || rules_[at].product > kLastId) {", "if (!isNew) {"),
    ("every rule of a covered vendor is dead", "dead_rules.cpp",
     "if (at == kept) continue;", ""),
    ("a whole vendor beyond the last id always matters", "dead_rules.cpp",
     "if (!whole || highestListed <= highestWhole) continue;", "if (!whole) continue;"),
    ("a repeated class is no dead rule", "dead_rules.cpp",
     "dead_.push_back({Cause::kRepeated, true, at, rule.line, first->second});", ""),
    ("nothing rides along", "surface.cpp",
     "if (isRestrictedClass(*wanted)) return std::vector{listed.front(), *wanted};", ""),
    ("only a class match is looked at", "surface.cpp",
     "for (const bool classMatches : {true, false}) {", "for (const bool classMatches : {true}) {"),
    ("listed ids are not looked at", "surface.cpp",
     "for (const bool idsMatch : {false, true}) {", "for (const bool idsMatch : {false}) {"),
    ("a listed class is no match", "surface.cpp",
     "if (form.listsClass(*wanted)) return std::vector{*wanted, kUnnamedClass};", ""),
]


def commands(build):
    """({file: what is compiled for it, how, and where}, how the program is linked)"""
    compiled = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        path = pathlib.Path(entry["directory"], entry["file"])
        how = (shlex.split(entry["command"]), entry["directory"])
        if path.parent == WORKBENCH:
            compiled[path.name] = (f'#include "{path}"\n', *how)
        elif "vus_workbench.dir" in str(path) and path.suffix == ".cxx":
            # Some at a time: all of them come into one object.
            together = path.read_text()
            for each in WORKBENCH.glob("*.cpp"):
                if f'"{each}"' in together:
                    compiled[each.name] = (together, *how)
    linked = subprocess.run(["ninja", "-C", build, "-t", "commands", "-s", TARGET], check=True,
                            stdout=subprocess.PIPE, text=True).stdout.splitlines()[-1]
    return compiled, linked


def without(words, *flags):
    """A compiler's command without flags that have a value."""
    kept, skip = [], False
    for word in words:
        if not skip and word not in flags:
            kept.append(word)
        skip = not skip and word in flags
    return kept


def make(build, directory, file, text):
    """A program in which `file` has another text."""
    mutant, source, made = directory / file, directory / "source.cxx", directory / "object.o"
    mutant.write_text(text)
    compiled, linked = commands(build)
    original, words, place = compiled[file]
    source.write_text(original.replace(f'"{WORKBENCH / file}"', f'"{mutant}"'))
    words = without(words, "-o", "-c", "-MF", "-MT", "-MQ")
    subprocess.run([*words, "-w", "-c", source, "-o", made], check=True, cwd=place)
    # In front of the library, whose own is then not taken.
    program = directory / "program"
    assert linked.count(f"-o {TARGET}") == 1, linked
    subprocess.run(linked.replace(f"-o {TARGET}", f"{made} -o {program}"), check=True, cwd=build,
                   shell=True, stdout=subprocess.DEVNULL)
    return program


def is_found(task):
    build, seed, (what, file, old, new) = task
    text = (WORKBENCH / file).read_text()
    if old:
        assert text.count(old) == 1, f"{what}: {file} has no such text once: {old}"
    with tempfile.TemporaryDirectory() as name:
        program = make(build, pathlib.Path(name), file, text.replace(old, new) if old else text)
        dice = random.Random(f"{seed}.{what}")
        for _ in range(TRIES):
            try:
                result = prove_analyser.prove((program, dice.randrange(1 << 30), PAIRS))
            except (subprocess.CalledProcessError, LookupError, ValueError):
                return what, True  # it does not even answer
            if isinstance(result, str):
                return what, True
    return what, False


def main(arguments):
    if len(arguments) not in (1, 2):
        print(__doc__, file=sys.stderr)
        return 2
    build = pathlib.Path(arguments[0]).resolve()
    seed = int(arguments[1]) if len(arguments) > 1 else 20261121
    with multiprocessing.Pool() as pool:
        found = dict(pool.imap_unordered(is_found, [(build, seed, each) for each in MUTANTS]))
    wrong = [what for what, is_wrong in found.items() if is_wrong == (what == "nothing")]
    for what in wrong:
        print("the prover finds a mistake where none is" if what == "nothing"
              else f"not found: {what}")
    print(f"{len(found) - 1} mutants from seed {seed}: {len(wrong)} not found")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
