#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Puts what the attacks say of themselves, and the times that were measured of them, into
docs/attacks.md. (Times are measured by tests/device/test_attacks.py with --write-table.)"""

import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "tests" / "device"), str(ROOT / "device")]

import attack_table  # noqa: E402

attack_table.update()
