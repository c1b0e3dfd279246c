# SPDX-License-Identifier: Apache-2.0
"""The examples that are installed are recipes of the policy guide, which are tested there."""

import pathlib

ROOT = pathlib.Path(__file__).resolve().parents[2]


def test_examples_are_the_guides():
    guide = (ROOT / "docs" / "policy-guide.md").read_text()
    examples = sorted((ROOT / "share" / "examples").glob("*.xml"))
    assert len(examples) >= 3
    assert [each.name for each in examples if f"```xml\n{each.read_text()}```" not in guide] == []
