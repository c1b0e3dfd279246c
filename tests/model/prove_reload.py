#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Has spin search every state of reload.pml, and hold it to what it says.

usage: prove_reload.py holds     there is no violation, and the steps are the code's functions
       prove_reload.py mutants   in each mutant there is one
       prove_reload.py reached   what is to be proven of can happen

A search that was not complete (depth, memory) proves nothing, and fails.
"""

import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
MODEL = pathlib.Path(__file__).resolve().parent / "reload.pml"

# How often each thing happens, at any moments: together what takes spin some seconds.
WORLDS = [{"REWRITES": 3, "KILLS": 1, "CRASHES": 1, "LOSSES": 1},
          {"REWRITES": 2, "KILLS": 2, "CRASHES": 1, "LOSSES": 1}]
MUTANTS = ["UNCONDITIONAL_RESTORE", "NO_REPAIR", "WRITES_DURING_START"]
# Steps of the model that are no functions: the kernel's, and the model's own.
OWN = {"closed", "forget", "unused_file"}


class Unproven(Exception):
    pass


def run(command, directory):
    done = subprocess.run(command, cwd=directory, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          check=False)
    if done.returncode != 0:
        raise Unproven(f"{' '.join(map(str, command))}: {done.stdout}")
    return done.stdout


def search(definitions, optimized=False):
    """What spin's search says, and the way to the violation that it found, if any."""
    flags = [f"-D{name}={value}" for name, value in definitions.items()]
    with tempfile.TemporaryDirectory() as directory:
        shutil.copy(MODEL, directory)
        run(["spin", *flags, "-a", MODEL.name], directory)
        run(["gcc", "-O2" if optimized else "-O0", "-w", "-DSAFETY", "-DCOLLAPSE", "-DMEMLIM=2000", "-o", "pan", "pan.c"], directory)
        text = run(["./pan", "-m100000"], directory)
        if re.search(r"max search depth|out of memory|memory limit", text):
            raise Unproven(f"the search is not complete:\n{text}")
        way = ""
        if any(pathlib.Path(directory).glob("*.trail")):
            way = run(["spin", *flags, "-t", "-p", MODEL.name], directory)
    return text, way


def figures(text):
    states = re.search(r"^\s*([\d.e+]+) states, stored", text, flags=re.M).group(1)
    seconds = re.search(r"elapsed time ([\d.]+)", text).group(1)
    return f"{int(float(states)):,} states, {seconds} s"


def errors(text):
    return int(re.search(r"errors: (\d+)", text).group(1))


def steps():
    """The model's steps that are no functions of the code."""
    code = "".join(path.read_text() for room in ("android/vus", "tools/vusctl")
                   for path in sorted((ROOT / room).glob("*.cpp")))
    names = set(re.findall(r"^inline (\w+)\(", MODEL.read_text(), flags=re.M)) - OWN
    if not names:
        raise Unproven("no steps")
    return sorted(name for name in names if not re.search(rf"^\S.*\b{name}\([^;{{}}]*\{{$|^    \w+ {name}\(.*\{{$", code, flags=re.M))


def holds():
    if steps():
        raise Unproven(f"no functions of the code: {steps()}")
    for world in WORLDS:
        text, way = search(world, optimized=True)
        if errors(text) != 0:
            raise Unproven(f"{world}: {text}{way}")
        if "Search not completed" in text:
            raise Unproven(text)
        print(", ".join(f"{name.lower()} {count}" for name, count in world.items()), "-", figures(text))


def mutants():
    for mutant in MUTANTS:
        text, _ = search({**WORLDS[0], mutant: 1})
        if errors(text) == 0 or "assertion violated" not in text:
            raise Unproven(f"nothing found in {mutant}:\n{text}")
        print(f"{mutant.lower()}: found after {figures(text)}")


def reached():
    points = re.findall(r"^#define (\w+) (\d+)$",
                        MODEL.read_text().split("With REACHED", 1)[1].split("#ifdef", 1)[0], flags=re.M)
    if not points:
        raise Unproven("no points")
    for name, number in points:
        text, _ = search({**WORLDS[0], "REACHED": number})
        if f"assertion violated ({number}!={number})" not in text:
            raise Unproven(f"{name} is not reached:\n{text}")
        print(f"{name.lower()}: reached after {figures(text)}")


def main(arguments):
    checks = {"holds": holds, "mutants": mutants, "reached": reached}
    if len(arguments) != 1 or arguments[0] not in checks:
        print(__doc__, file=sys.stderr)
        return 2
    try:
        checks[arguments[0]]()
    except Unproven as why:
        print(why)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
