#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Puts what vusctl says of its commands into its manual page.

    scripts/update_manual.py [VUSCTL]     default: build/dev/bin/vusctl
"""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
PAGE = ROOT / "docs" / "man" / "vusctl.1"
# From the synopsis up to what is written by hand again.
MADE = re.compile(r"^\.Sh SYNOPSIS\n.*?(?=^\.Sh FILES\n)", flags=re.M | re.S)


def main():
    program = sys.argv[1] if len(sys.argv) > 1 else str(ROOT / "build/dev/bin/vusctl")
    made = subprocess.run([program, "completion", "man"], check=True, capture_output=True,
                          text=True).stdout
    text, count = MADE.subn(lambda _: made, PAGE.read_text())
    if count != 1:
        sys.exit(f"error: {PAGE} has no place for the synopsis")
    PAGE.write_text(text)


main()
