# SPDX-License-Identifier: Apache-2.0
"""docs/attacks.md says what the attacks say of themselves, and what was measured of them."""

import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "tests" / "device"), str(ROOT / "device")]

import attack_table  # noqa: E402
import attacking  # noqa: E402

ATTACKS = attacking.attacks()


def test_the_page_is_up_to_date():
    text = attack_table.PAGE.read_text()
    assert attack_table.updated(text) == text, "run scripts/update_attacks.py"


@pytest.mark.parametrize("attack", ATTACKS, ids=lambda attack: attack.name())
def test_an_attack_says_what_it_is(attack):
    for text in (attack.title, attack.who, attack.wants, attack.answer):
        assert text.strip() == text and text
    assert attacking.REPORTER in attack.expected
    assert set(attack.expected) <= set(attacking.SETUPS)
    assert set(attack.expected.values()) <= set(attacking.OUTCOMES)


def test_titles_are_told_apart():
    assert len({attack.title for attack in ATTACKS}) == len(ATTACKS) > 20


@pytest.mark.parametrize("attack", ATTACKS, ids=lambda attack: attack.name())
def test_what_came_of_it_is_what_is_expected(attack):
    for setup in attacking.SETUPS:
        run = attack_table.Measured().of(attack, setup)
        if run is None:
            continue
        assert run["outcome"] == attack.outcome(setup), f"{setup.name}: run it with --write-table"
        assert ("ms" in run) == (run["outcome"] == attacking.EXPOSED)


def test_what_was_run_is_there():
    names = {attack.name() for attack in ATTACKS}
    setups = {setup.name for setup in attacking.SETUPS}
    for name, runs in attack_table.Measured().runs.items():
        assert name in names and set(runs) <= setups
