# SPDX-License-Identifier: Apache-2.0
"""What an attack is, what it is run against, and what may come of it.

Each file of attacks/ is one; docs/attacks.md is made of them.
"""

import importlib
import re
from dataclasses import dataclass
from pathlib import Path

import vdev

HERE = Path(__file__).resolve().parent / "attacks"
# The outcomes, from the best to the worst. The third and the fourth are the same to look at: the
# attacker has what he wants at the end. They differ in whether something could be done about it here.
HELD, EXPOSED, DOCUMENTED, IMPOSSIBLE = "held", "exposed", "documented", "impossible to close"
OUTCOMES = [HELD, EXPOSED, DOCUMENTED, IMPOSSIBLE]


@dataclass(frozen=True)
class Setup:
    """A way to run the reporter."""

    name: str
    options: str
    what: str


REPORTER = Setup("reporter", vdev.NO_GATE, "the reporter alone")
FAIL_CLOSED = Setup("fail-closed", f"{vdev.NO_GATE} --fail-closed", "the reporter, which fails closed")
GATE = Setup("gate", vdev.GATE, "the gate")
SETUPS = [REPORTER, FAIL_CLOSED, GATE]

# Disks, mice, and one product of one vendor.
COMPANY = 0x0C45, 0x6366
RULES = ("<class>USB_CLASS_MASS_STORAGE</class><class>AINPUT_SOURCE_MOUSE</class>"
         f'<vid vendorid="{COMPANY[0]}"><pid>{COMPANY[1]}</pid></vid>')


class Attack:
    """One attack. Its file's name is its own; what is said here is for people."""

    title = ""
    who = ""
    wants = ""
    # By set-up. One that is left out is as the set-up before it.
    expected = {}
    # What happens, and what a platform can do where it is not held.
    answer = ""
    # What must not be, of "DRIVER DEVICE" as the kernel calls them. A driver that does so for a
    # moment, or a trial of one, is exposure.
    unwanted = r"^$"
    # Whether a claim by usbfs is a driver like others. The gate itself asks HID devices by usbfs.
    counts_usbfs = False

    @classmethod
    def name(cls):
        return cls.__module__.rsplit(".", 1)[-1]

    @classmethod
    def outcome(cls, setup):
        known = [cls.expected[one] for one in SETUPS[:SETUPS.index(setup) + 1] if one in cls.expected]
        return known[-1]

    def run(self, scene):
        """Does what the attacker does, until the other side has done all that it does about it."""
        raise NotImplementedError

    def succeeds(self, scene):
        """Whether the attacker has what he wants in the end, besides a driver."""
        return False

    def is_unwanted(self, trial):
        return re.search(self.unwanted, f"{trial.driver} {trial.name}") is not None


def attacks():
    """In the order of the table."""
    modules = [importlib.import_module(f"attacks.{path.stem}") for path in sorted(HERE.glob("*.py"))
               if path.stem != "__init__"]
    return [module.ATTACK for module in modules]
