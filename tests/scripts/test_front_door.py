# SPDX-License-Identifier: Apache-2.0
"""./test, ./run and ./package: what they answer at once, and what they refuse with one sentence."""

import fcntl
import os
import pathlib
import shutil
import subprocess
import time

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]


@pytest.fixture
def checkout(tmp_path):
    """A copy of the front door, with nothing behind it: a set-up that is begun fails loudly."""
    return copy_to(tmp_path / "checkout")


def copy_to(directory):
    (directory / "scripts").mkdir(parents=True)
    for name in ("test", "run", "package", "scripts/lib.sh"):
        shutil.copy(ROOT / name, directory / name)
    return directory


def call(program, *arguments, prefix=()):
    return subprocess.run([*prefix, program, *arguments], capture_output=True, text=True,
                          check=False, timeout=60)


@pytest.mark.parametrize("program", ["test", "run", "package"])
@pytest.mark.parametrize("word", ["--help", "-h"])
def test_help_needs_no_set_up(checkout, program, word):
    result = call(checkout / program, word)
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout.startswith(f"usage: ./{program} [")
    assert not (checkout / "build").exists()


@pytest.mark.parametrize("program", ["test", "run", "package"])
def test_wrong_word_is_told_before_any_set_up(checkout, program):
    result = call(checkout / program, "no_such_word")
    assert (result.returncode, result.stdout) == (2, "")
    assert result.stderr.startswith(f"usage: ./{program} [")
    assert not (checkout / "build").exists()


@pytest.mark.parametrize("program", ["test", "run", "package"])
def test_path_with_a_blank(tmp_path, program):
    result = call(copy_to(tmp_path / "a checkout") / program)
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr.startswith("error: the path of this checkout has a blank")
    assert result.stderr.count("\n") == 1


@pytest.mark.parametrize("program", ["test", "run", "package"])
def test_read_only_checkout(checkout, program):
    mount = f"mount --bind {checkout} {checkout} && mount -o remount,bind,ro {checkout} && exec \"$0\""
    result = call(checkout / program, prefix=["unshare", "--mount", "--map-root-user", "sh", "-c", mount])
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr.startswith("error: this checkout cannot be written to")
    assert result.stderr.count("\n") == 1


def test_second_test_says_so_and_ends(checkout):
    (checkout / "build").mkdir()
    with open(checkout / "build" / ".test.lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        result = call(checkout / "test", "unit")
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr == (
        "error: another ./test is running in this checkout: wait until it has ended.\n")


def is_waited_for(lock):
    """Whether somebody waits for the lock of an open file."""
    place = f":{os.fstat(lock.fileno()).st_ino} "
    return any("->" in line and place in line for line in open("/proc/locks", encoding="ascii"))


def test_device_waits_until_its_programs_are_laid_out(checkout):
    """By another ./run, and only then looks whether they are there."""
    (checkout / "device").mkdir()
    for name in ("device/build.sh", "device/kernel.sh", "scripts/apt.sh"):
        shutil.copy(ROOT / name, checkout / name)
    (checkout / "build" / "downloads").mkdir(parents=True)
    with open(checkout / "build" / "downloads" / ".arm64.lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        build = subprocess.Popen([checkout / "device" / "build.sh"], stderr=subprocess.PIPE, text=True)
        try:
            give_up_at = time.monotonic() + 60
            while not is_waited_for(lock):
                assert build.poll() is None, build.stderr.read()
                assert time.monotonic() < give_up_at
                time.sleep(0.01)
            fcntl.flock(lock, fcntl.LOCK_UN)
            assert build.communicate(timeout=60)[1] == (
                "error: the device's programs are not built: run scripts/build-arm64.sh first.\n")
            assert build.returncode == 1
        finally:
            build.kill()
            build.wait()


def test_what_a_step_leaves_running_does_not_hold_the_lock(checkout):
    """An emulator that outlives an interrupted ./test, for one."""
    setup = checkout / "scripts" / "setup-packages.sh"
    setup.write_text("#!/bin/sh\nsleep 60 & echo $! >left; exit 1\n")
    setup.chmod(0o755)
    assert call(checkout / "test", "unit").returncode == 1
    left = int((checkout / "left").read_text())
    try:
        assert "another ./test" not in call(checkout / "test", "unit").stderr
    finally:
        os.kill(left, 9)
        os.kill(int((checkout / "left").read_text()), 9)
