# SPDX-License-Identifier: Apache-2.0
"""What an Android build takes of this tree fits together, as far as that can be told without one."""

import pathlib
import re

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
ANDROID = ROOT / "integration" / "android"
BLUEPRINT = (ROOT / "Android.bp").read_text()
SCRIPTS = sorted(ANDROID.glob("*.rc"))
SOURCES = [source for room in ("android/vus", "tools") for source in sorted((ROOT / room).rglob("*"))
           if source.suffix in (".cpp", ".h")]


def module(name):
    """The text of a module."""
    for text in re.findall(r"^\w+ \{\n.*?^\}", BLUEPRINT, flags=re.M | re.S):
        if f'    name: "{name}",' in text:
            return text
    return ""


def services():
    found = [(script, *match) for script in SCRIPTS
             for match in re.findall(r"^service (\w+) (\S+)(.*)$", script.read_text(), flags=re.M)]
    assert {name for _, name, _, _ in found} == {"vusd", "vus_hotplug"}
    return found


def test_services_are_built_installed_and_labelled():
    contexts = (ANDROID / "sepolicy" / "private" / "file_contexts").read_text()
    for script, name, path, _ in services():
        assert path == f"/system_ext/bin/{name}"
        assert f'init_rc: ["integration/android/{script.name}"]' in module(name)
        assert re.search(rf"^/\(system_ext\|.*\)/bin/{name} +u:object_r:{name}_exec:s0$", contexts, flags=re.M)


def test_reporter_is_started_with_arguments_that_it_takes():
    usage = (ROOT / "tools" / "hotplug" / "options.h").read_text()
    (arguments,) = [rest.split() for _, name, _, rest in services() if name == "vus_hotplug"]
    assert arguments == ["--gate", "--fail-closed"]
    for argument in arguments:
        assert f'"  {argument} ' in usage


def test_the_door_is_shut_in_early_init_by_the_gates_own_switches():
    script = (ANDROID / "vus_hotplug.rc").read_text()
    early = re.search(r"^on early-init\n(.*?)^on ", script, flags=re.M | re.S).group(1)
    written = dict(re.findall(r"^    write (\S+) (\S+)$", early, flags=re.M))
    paths = dict(re.findall(r'(k\w+)\[\] = "([^"]+)"', (ROOT / "tools" / "hotplug" / "sysfs_paths.h").read_text()))
    assert written.pop(paths["kUsbAutoprobeFile"]) == "0"
    assert written.pop(paths["kHidAutoprobeFile"]) == "0"
    assert written
    for path, value in written.items():
        assert re.fullmatch(rf"/sys/bus/usb/devices/usb\d/{paths['kInterfaceDefault']}", path)
        assert value == "0"


def test_the_early_switches_are_what_the_policy_labels():
    labels = re.findall(r"^genfscon sysfs (\S+) ",
                        (ANDROID / "sepolicy" / "private" / "genfs_contexts").read_text(), flags=re.M)
    for bus in ("usb", "hid"):
        for switch in ("drivers_autoprobe", "drivers_probe", "drivers/x/bind"):
            assert any(f"/bus/{bus}/{switch}".startswith(label) for label in labels)


@pytest.mark.parametrize("name", ["vusd", "vusctl", "vus_hotplug", "vus_aidl_interface"])
def test_everything_installed_is_of_system_ext(name):
    assert "    system_ext_specific: true,\n" in module(name)


def test_one_source_and_its_library_know_the_unwinder():
    knowing = [source.relative_to(ROOT).as_posix() for source in SOURCES
               if re.search(r"#include [<\"]backtrace/", source.read_text())]
    assert knowing == ["android/vus/stack_trace.cpp"]
    modules = re.findall(r'^\w+ \{\n    name: "(\w+)",', BLUEPRINT, flags=re.M)
    linking = {name for name in modules if '"libbacktrace"' in module(name)}
    # A program links what its static libraries need.
    assert linking == {"libvus_stack_trace", "vusd"}


def test_no_source_needs_what_only_a_linux_host_has():
    for source in SOURCES:
        text = source.read_text()
        outside = re.sub(r"^#ifndef __ANDROID__\n.*?^#endif", "", text, flags=re.M | re.S)
        outside = re.sub(r"^#if __has_include\(<libudev.h>\)\n.*?^#else", "", outside, flags=re.M | re.S)
        assert not re.search(r'#include ("platform/|<libudev)', outside), source
