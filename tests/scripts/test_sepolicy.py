# SPDX-License-Identifier: Apache-2.0
"""integration/android/check-sepolicy.sh finds what it is there for, and does not say more than it has seen."""

import pathlib
import shutil
import subprocess

import pytest

ANDROID = pathlib.Path(__file__).resolve().parents[2] / "integration" / "android"


@pytest.fixture
def copy(tmp_path):
    return pathlib.Path(shutil.copytree(ANDROID, tmp_path / "android"))


def check(directory, *arguments, tree=None):
    environment = {"PATH": "/usr/bin:/bin:/usr/sbin:/sbin"}
    if tree is not None:
        environment["VUS_AOSP_SEPOLICY"] = str(tree)
    run = subprocess.run([directory / "check-sepolicy.sh", *arguments], env=environment, text=True,
                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    return run.returncode, run.stdout


def test_it_parses(copy):
    status, output = check(copy)
    assert status == 0
    assert "no platform's rule was checked" in output


@pytest.mark.parametrize("rule", [
    "allow vusd no_such_type:file read;",
    "allow vusd sysfs:file no_such_permission;",
    "allow vusd sysfs:file read",
    # These, a real platform has refused.
    "r_dir_file(vusd, sysfs)",
    "r_dir_file(vusd, sysfs_batteryinfo)",
    "neverallow vusd *:tcp_socket *;",
    # And these are what must stay so.
    "allow untrusted_app sysfs_vus_drivers:file { open write };",
    "allow vusd self:capability net_admin;",
    "allow vus_hotplug vus_config_data_file:file write;",
    "allow shell vus_config_data_file:file write;",
])
def test_wrong_rule_is_found(copy, rule):
    policy = copy / "sepolicy" / "private" / "vusd.te"
    policy.write_text(f"{policy.read_text()}\n{rule}\n")
    assert check(copy)[0] != 0


def test_board_grants_to_both_domains(copy):
    """The board's part stands alone: it can be replaced by one with types of its own."""
    board = copy / "sepolicy" / "board"
    (board / "genfs_contexts").write_text("genfscon sysfs /devices/x u:object_r:sysfs_own:s0\n")
    (board / "vus_board.te").write_text("type sysfs_own, fs_type, sysfs_type;\n"
                                        "allow { vusd vus_hotplug } sysfs_own:file rw_file_perms;\n")
    assert check(copy)[0] == 0


def test_undeclared_type_of_a_context_is_found(copy):
    contexts = copy / "sepolicy" / "private" / "file_contexts"
    contexts.write_text("/system_ext/bin/vusd u:object_r:vusd_exe:s0\n")
    assert check(copy)[0] != 0


def test_without_a_tree_the_platform_is_not_checked(copy):
    assert check(copy, "--platform") == (77, "not run: VUS_AOSP_SEPOLICY names no Android tree's system/sepolicy\n")


def test_directory_that_is_no_tree_is_an_error(copy, tmp_path):
    assert check(copy, "--platform", tree=tmp_path)[0] == 2
    assert check(copy, "--platform", tree=tmp_path / "missing")[0] not in (0, 77)


def test_rule_against_a_trees_neverallow_is_found(copy, tmp_path):
    """Both kinds of build are compiled: a debug build has more rules."""
    tree = pathlib.Path(shutil.copytree(copy / "check" / "stub", tmp_path / "tree"))
    assert check(copy, "--platform", tree=tree)[0] == 0
    (tree / "private" / "more.te").write_text(
        "ifelse(target_build_variant, `userdebug', `neverallow vusd vus_config_data_file:file write;')\n")
    status, output = check(copy, "--platform", tree=tree)
    assert status != 0
    assert "user build" in output
    assert "userdebug build" not in output
