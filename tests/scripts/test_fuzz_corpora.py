# SPDX-License-Identifier: Apache-2.0
"""What the fuzzers start from: seeds for each, and what an hour of each has found before."""

import pathlib
import tarfile

import pytest

FUZZ = pathlib.Path(__file__).resolve().parents[2] / "fuzz"
FUZZERS = sorted(program.name.removesuffix("_fuzzer.cpp") for program in FUZZ.glob("*_fuzzer.cpp"))
# What libFuzzer makes of inputs by itself is no longer than this.
LONGEST = 1 << 20


@pytest.fixture(scope="module")
def found():
    with tarfile.open(FUZZ / "found.tar.xz") as archive:
        return archive.getmembers()


def test_there_are_fuzzers():
    assert len(FUZZERS) >= 9


@pytest.mark.parametrize("name", FUZZERS)
def test_a_fuzzer_has_seeds_a_dictionary_and_what_was_found(name, found):
    assert any((FUZZ / "corpus" / name).iterdir())
    assert (FUZZ / f"{name}.dict").is_file()
    assert any(member.isfile() and member.name.startswith(f"./{name}/") for member in found)


def test_what_was_found_is_nothing_but_inputs(found):
    for member in found:
        if member.isdir():
            assert member.name.removeprefix("./") in ["", ".", *FUZZERS], member.name
            continue
        _, fuzzer, name = member.name.split("/")
        assert member.isfile() and fuzzer in FUZZERS and name not in ("", ".", ".."), member.name
        assert member.size <= LONGEST
