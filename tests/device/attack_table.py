# SPDX-License-Identifier: Apache-2.0
"""docs/attacks.md, as far as it is made of the attacks and of what was measured of them."""

import fcntl
import json
import math
import re
import statistics
from pathlib import Path

from attacking import EXPOSED, HELD, OUTCOMES, SETUPS, attacks

ROOT = Path(__file__).resolve().parents[2]
PAGE = ROOT / "docs" / "attacks.md"
MEASURED = Path(__file__).resolve().parent / "attacks" / "measured.json"
MADE = re.compile(r"(?<=<!-- made of tests/device/attacks -->\n).*(?=<!-- end -->)", flags=re.S)
# How many of the times that were measured are kept, the newest.
KEPT = 5
# What is more than so many times what it was is worse, and not only the emulator's mood.
MUCH_WORSE, AT_LEAST_MS = 10, 2000


class Measured:
    """What came of each attack under each set-up when it was last run with --write-table, and for how
    many ms it was exposed, the newest last."""

    def __init__(self, keep=False):
        self.keep = keep
        with open(MEASURED, encoding="ascii") as file:
            fcntl.flock(file, fcntl.LOCK_SH)
            self.runs = json.loads(file.read())

    def of(self, attack, setup):
        """None for what was not run."""
        return self.runs.get(attack.name(), {}).get(setup.name)

    def add(self, attack, setup, ms):
        """It came to what was expected."""
        if not self.keep:
            return
        with open(MEASURED, encoding="ascii") as file:
            fcntl.flock(file, fcntl.LOCK_EX)  # the set-ups may be measured side by side
            self.runs = json.loads(file.read())
            outcome = attack.outcome(setup)
            run = {"outcome": outcome}
            if outcome == EXPOSED:
                known = (self.of(attack, setup) or {}).get("ms", [])
                run["ms"] = (known + [round(ms, 1)])[-KEPT:]
            self.runs.setdefault(attack.name(), {})[setup.name] = run
            self._save()

    def at_most_ms(self, attack, setup):
        known = (self.of(attack, setup) or {}).get("ms")
        return max(MUCH_WORSE * statistics.median(known), AT_LEAST_MS) if known else math.inf

    def _save(self):
        """Of attacks that there are."""
        kept = {attack.name(): self.runs[attack.name()] for attack in attacks() if attack.name() in self.runs}
        lines = ",\n".join(f'  "{name}": {{\n' + ",\n".join(
            f'    "{setup.name}": {json.dumps(runs[setup.name])}' for setup in SETUPS if setup.name in runs) + "\n  }"
            for name, runs in sorted(kept.items()))
        MEASURED.write_text("{\n" + lines + "\n}\n")


def _cell(attack, setup, measured):
    run = measured.of(attack, setup)
    if run is None:
        return "not run"
    if run["outcome"] == EXPOSED:
        return f"exposed for {statistics.median(run['ms']):.0f} ms"
    return f"**{HELD}**" if run["outcome"] == HELD else run["outcome"]


def _rows():
    measured = Measured()
    yield "| Attack | " + " | ".join(setup.what for setup in SETUPS) + " |"
    yield "|---|" + "---|" * len(SETUPS)
    for attack in attacks():
        cells = [_cell(attack, setup, measured) for setup in SETUPS]
        yield f"| [{attack.title}](#{_anchor(attack.title)}) | " + " | ".join(cells) + " |"
    totals = [[run["outcome"] for attack in attacks() if (run := measured.of(attack, setup))] for setup in SETUPS]
    yield "| **together** | " + " | ".join(_total(outcomes) for outcomes in totals) + " |"


def _total(outcomes):
    return ", ".join(f"{outcomes.count(one)} {one}" for one in OUTCOMES if one in outcomes)


def _anchor(title):
    return re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-")


def _sections():
    for attack in attacks():
        yield f"\n### {attack.title}\n"
        yield f"- **Who**: {attack.who}."
        yield f"- **Wants** {attack.wants}."
        yield f"- {attack.answer}"
        yield f"- [{attack.name()}.py](../tests/device/attacks/{attack.name()}.py)"


def made():
    return "\n".join(["", *_rows(), "", "## Attack by attack", *_sections(), "", ""])


def updated(text):
    if len(MADE.findall(text)) != 1:
        raise ValueError(f"{PAGE} has no place for the table")
    return MADE.sub(lambda _: made(), text)


def update():
    PAGE.write_text(updated(PAGE.read_text()))
