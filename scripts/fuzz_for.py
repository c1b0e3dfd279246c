#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Lets a fuzzer look for inputs, and keeps of what it found the fewest that reach as much.

VUS_FUZZ_MINUTES says for how long. PROGRAM is NAME_fuzzer in a build tree that is instrumented for
it; beside it are the tree's corpus/NAME, which grows, and corpus/NAME.dict. A finding is left in
the tree as NAME-crash-..., and NAME-slow-unit-... is no finding. The last line that is printed has
the figures.

usage: fuzz_for.py PROGRAM
"""

import os
import re
import shutil
import subprocess
import sys
import time
from pathlib import Path

SILENT = "-close_fd_mask=3"  # what the program under test prints, not the fuzzer


def last_number(pattern, text):
    found = re.findall(pattern, text)
    return int(found[-1]) if found else 0


def run(command):
    """The exit status and what the fuzzer printed, which goes on to our own output, too."""
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    text = result.stdout.decode(errors="replace")
    sys.stdout.write(text)
    return result.returncode, text


def minimise(program, corpus):
    """Puts the fewest inputs that reach what all of the corpus reaches in its place."""
    fewest = corpus.with_name(corpus.name + ".fewest")
    # Written by one process and read by another, each in a private root: it has to be in the tree.
    control = corpus.with_name(corpus.name + ".merge")
    shutil.rmtree(fewest, ignore_errors=True)
    control.unlink(missing_ok=True)
    fewest.mkdir()
    status, _ = run([program, SILENT, "-merge=1", f"-merge_control_file={control}", str(fewest), str(corpus)])
    control.unlink(missing_ok=True)
    if status != 0 or not any(fewest.iterdir()):
        shutil.rmtree(fewest)
        return False
    shutil.rmtree(corpus)
    fewest.rename(corpus)
    return True


def main():
    minutes = os.environ.get("VUS_FUZZ_MINUTES", "")
    if len(sys.argv) != 2 or not re.fullmatch(r"[1-9][0-9]*", minutes):
        sys.exit(__doc__.rsplit("\n\n", 1)[-1])
    program = Path(sys.argv[1]).resolve()
    name = program.name.removesuffix("_fuzzer")
    tree = program.parents[1]
    corpus = tree / "corpus" / name
    begun = time.monotonic()
    status, text = run([
        str(program), f"-max_total_time={int(minutes) * 60}", SILENT, f"-dict={corpus}.dict",
        f"-artifact_prefix={tree}/{name}-", "-print_final_stats=1", str(corpus)])
    runs = last_number(r"stat::number_of_executed_units:\s*(\d+)", text)
    found = "a finding" if status else "no finding"
    if status == 0 and not minimise(str(program), corpus):
        found = "the inputs could not be minimised"
        status = 1
    print(f"figures: {name}: {runs} inputs in {time.monotonic() - begun:.0f} s, {last_number(r'cov: ([0-9]+)', text)} "
          f"edges, {len(list(corpus.iterdir()))} inputs kept, {found}")
    return 1 if status or runs == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
