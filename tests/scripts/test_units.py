# SPDX-License-Identifier: Apache-2.0
"""The services of a Linux host: systemd takes the units, and they may do little."""

import os
import pathlib
import re
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
TEMPLATES = sorted((ROOT / "packaging" / "systemd").glob("*.in"))
DAEMONS = ["vus-servicemanager.service", "vusd.service", "vus-hotplug.service"]
ASKS = "vus-alive.service"
PLACES = {"VUS_BIN_DIR": "/usr/bin", "VUS_SBIN_DIR": "/usr/sbin",
          "VUS_PRIVATE_DIR": "/usr/libexec/vus"}
# The best-known daemon of this kind has 2.9.
MOST_EXPOSURE = 2.0


def unit_text(template):
    return re.sub(r"@(\w+)@", lambda name: PLACES[name.group(1)], template.read_text())


@pytest.fixture(scope="module")
def root(tmp_path_factory):
    """A root directory with the units, and something to run at each place that they name."""
    top = tmp_path_factory.mktemp("root")
    units = top / "etc" / "systemd" / "system"
    units.mkdir(parents=True)
    for template in TEMPLATES:
        text = unit_text(template)
        (units / template.stem).write_text(text)
        for program in re.findall(r"^Exec\w+=(\S+)", text, flags=re.M):
            path = top / program.lstrip("/")
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text("#!/bin/sh\n")
            path.chmod(0o755)
    return top


def analyze(root, *arguments):
    return subprocess.run(["systemd-analyze", f"--root={root}", *arguments], check=False,
                          capture_output=True, text=True, timeout=60,
                          env={**os.environ, "SYSTEMD_LOG_LEVEL": "info"})


def about_ours(messages):
    """The lines that are not of what this root lacks: targets, sockets and pages of systemd's own."""
    return [line for line in messages.splitlines()
            if "vus" in line and "Unit " not in line.split(": ", 1)[-1]]


def lines(unit):
    return unit_text(ROOT / "packaging" / "systemd" / f"{unit}.in").splitlines()


@pytest.mark.parametrize("unit", [template.stem for template in TEMPLATES])
def test_systemd_understands_it(root, unit):
    result = analyze(root, "verify", "--man=no", "--recursive-errors=no", unit)
    assert about_ours(result.stderr) == []


def test_systemd_would_complain(root):
    wrong = root / "etc" / "systemd" / "system" / "vus-wrong.service"
    wrong.write_text("[Service]\nExecStart=/usr/libexec/vus/vusd\nNoSuchSetting=yes\n")
    result = analyze(root, "verify", "--man=no", "--recursive-errors=no", wrong.name)
    wrong.unlink()
    assert any("NoSuchSetting" in line for line in about_ours(result.stderr))


@pytest.mark.parametrize("unit", [*DAEMONS, ASKS])
def test_exposure(root, unit):
    result = analyze(root, "security", "--offline=yes", "--no-pager", unit)
    exposure = re.search(r"Overall exposure level for \S+: ([0-9.]+)", result.stdout)
    assert exposure, result.stdout + result.stderr
    assert float(exposure.group(1)) <= MOST_EXPOSURE


@pytest.mark.parametrize("template", TEMPLATES, ids=lambda path: path.stem)
def test_a_word_of_the_boot_keeps_every_one_away(template):
    assert "ConditionKernelCommandLine=!vus.off" in lines(template.stem)


def test_the_daemons_steps_are_in_order():
    steps = [line.split("=", 1) for line in lines("vusd.service") if line.startswith("Exec")]
    assert steps == [["ExecStartPre", "/usr/bin/vusctl policy repair"],
                     ["ExecStartPre", "/usr/libexec/vus/vusd run-startup-tasks"],
                     ["ExecStart", "/usr/libexec/vus/vusd"]]


def test_the_gate_is_shut_and_stays_so_while_the_daemon_is_away():
    text = lines("vus-hotplug.service")
    command = next(line for line in text if line.startswith("ExecStart="))
    assert command.split()[:3] == ["ExecStart=/usr/sbin/vus_hotplug", "--gate", "--fail-closed"]
    # By which a HID interface is asked what it is.
    assert "DeviceAllow=char-usb_device rw" in text
    assert not any(line.startswith(("Requires=", "BindsTo=")) and "vusd" in line for line in text)


def test_the_gate_may_read_the_policy_of_any_administrator():
    """It is root without the right to read what is somebody else's."""
    assert "SupplementaryGroups=vus" in lines("vus-hotplug.service")
    assert "Group=vus" in lines("vusd.service")


def test_the_meter_writes_where_vusctl_reads():
    text = lines("vus-hotplug.service")
    events = re.search(r'kEventsFile\[\] = "([^"]+)"', (ROOT / "tools/vusctl/exposures.h").read_text()).group(1)
    command = next(line for line in text if line.startswith("ExecStart=")).split()
    assert command[command.index("--events") + 1] == events
    # Which systemd makes, and lets it write to.
    folder = str(pathlib.PurePath(events).parent)
    assert f"StateDirectory={folder.removeprefix('/var/lib/')}" in text
    assert f" /var/lib/vus {folder} " in (ROOT / "debian" / "vus.postrm").read_text()


def test_events_have_the_room_that_they_need_and_no_network_is_to_be_changed():
    """A burst of devices behind the gate is lost else, and everybody's limit is 208 KiB."""
    text = lines("vus-hotplug.service")
    assert "CapabilityBoundingSet=CAP_NET_ADMIN" in text
    assert "PrivateNetwork=yes" in text


def test_what_the_reporter_has_closed_is_known_to_the_next_one():
    file = re.search(r'kFile\[\] = "([^"]+)"', (ROOT / "tools" / "hotplug" / "closings.h").read_text()).group(1)
    text = lines("vus-hotplug.service")
    assert f"RuntimeDirectory={pathlib.Path(file).parent.relative_to('/run')}" in text
    assert "RuntimeDirectoryPreserve=yes" in text


@pytest.mark.parametrize("unit", DAEMONS)
def test_each_comes_back_and_is_there_before_anything_else(unit):
    text = lines(unit)
    assert "Restart=always" in text and "StartLimitIntervalSec=0" in text
    assert "Before=sysinit.target shutdown.target" in text and "DefaultDependencies=no" in text


def test_the_daemon_starts_again_with_the_service_manager():
    """BindsTo would stop it when the service manager is killed, and what was stopped is not restarted."""
    text = lines("vusd.service")
    assert "Requires=vus-servicemanager.service" in text
    assert not any(line.startswith("BindsTo=") for line in text)


@pytest.mark.parametrize("unit", DAEMONS)
def test_no_function_is_looked_for_when_it_is_needed(unit):
    assert "Environment=LD_BIND_NOW=1" in lines(unit)


def test_every_unit_is_installed():
    installed = re.search(r"foreach\(unit IN ITEMS ([^)]+)\)",
                          (ROOT / "cmake" / "VusInstall.cmake").read_text()).group(1).split()
    assert sorted(installed) == [each.stem for each in TEMPLATES]


def test_nothing_with_anothers_name_is_on_a_path():
    """Programs of ours that are called as Android's go to no public directory."""
    text = (ROOT / "cmake" / "VusInstall.cmake").read_text()
    placed = dict(re.findall(r'install_program\((\w+) "([^"]+)"\)', text))
    assert placed == {"vusctl": "${CMAKE_INSTALL_BINDIR}", "vus_hotplug": "${CMAKE_INSTALL_SBINDIR}",
                      "vusd": "${private_dir}", "servicemanager": "${private_dir}"}
    others = [path for path in [ROOT / "CMakeLists.txt", *ROOT.glob("[a-z]*/**/CMakeLists.txt")]
              if "build" not in path.relative_to(ROOT).parts and "install(" in path.read_text()]
    assert others == []


class Sysfs:
    """A tree of plain files, in which what is written can be read."""

    def __init__(self, top):
        self.top = top
        for name in ("bus/usb/devices", "bus/hid/devices", "class/input"):
            (top / name).mkdir(parents=True)
        for bus in ("usb", "hid"):
            (top / "bus" / bus / "drivers_probe").write_text("")
            (top / "bus" / bus / "drivers_autoprobe").write_text("0\n")

    def usb(self, name, authorized, driver=True):
        folder = self.top / "bus" / "usb" / "devices" / name
        folder.mkdir()
        (folder / "authorized").write_text(f"{authorized}\n")
        if driver:
            (folder / "driver").mkdir()
        return folder / "authorized"

    def root_hub(self, name, default):
        folder = self.top / "bus" / "usb" / "devices" / name
        folder.mkdir()
        (folder / "interface_authorized_default").write_text(f"{default}\n")
        (folder / "driver").mkdir()
        return folder / "interface_authorized_default"

    def input(self, name, inhibited):
        folder = self.top / "class" / "input" / name
        folder.mkdir()
        (folder / "inhibited").write_text(f"{inhibited}\n")
        return folder / "inhibited"

    def hid(self, name, driver=True):
        folder = self.top / "bus" / "hid" / "devices" / name
        folder.mkdir()
        if driver:
            (folder / "driver").mkdir()

    def probed(self, bus):
        """The last name: a plain file keeps no more of what is written to it."""
        return (self.top / "bus" / bus / "drivers_probe").read_text()


@pytest.fixture
def sysfs(tmp_path):
    return Sysfs(tmp_path)


def open_door(sysfs):
    return subprocess.run([ROOT / "packaging" / "open-door", sysfs.top], check=False,
                          capture_output=True, text=True, timeout=60)


def test_door_opens_what_is_closed(sysfs):
    device = sysfs.usb("1-2", 0)
    interface = sysfs.usb("1-2:1.0", 0, driver=False)
    key = sysfs.input("input5", 1)
    sysfs.hid("0003:046D:C31C.0001", driver=False)
    result = open_door(sysfs)
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")
    assert [path.read_text() for path in (device, interface, key)] == ["1\n", "1\n", "0\n"]
    assert sysfs.probed("usb") == "1-2:1.0\n"
    assert sysfs.probed("hid") == "0003:046D:C31C.0001\n"


def test_door_no_longer_holds_what_comes(sysfs):
    """What a gate has left behind."""
    defaults = [sysfs.root_hub("usb1", 0), sysfs.root_hub("usb2", 1)]
    result = open_door(sysfs)
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")
    assert [path.read_text() for path in defaults] == ["1\n", "1\n"]
    switches = [sysfs.top / "bus" / bus / "drivers_autoprobe" for bus in ("usb", "hid")]
    assert [path.read_text() for path in switches] == ["1\n", "1\n"]


def test_door_configures_what_waits_at_a_gate(sysfs):
    """Without a driver a device has no interfaces: it goes before them."""
    (sysfs.usb("1-2", 1, driver=False).parent / "bConfigurationValue").write_text("\n")
    assert open_door(sysfs).returncode == 0
    assert sysfs.probed("usb") == "1-2\n"


def test_door_leaves_alone_what_is_open(sysfs):
    files = [sysfs.usb("1-2", 1), sysfs.usb("1-2:1.0", 1), sysfs.input("input5", 0)]
    sysfs.hid("0003:046D:C31C.0001")
    before = [path.stat().st_mtime_ns for path in files]
    assert open_door(sysfs).returncode == 0
    assert [path.stat().st_mtime_ns for path in files] == before
    assert sysfs.probed("usb") == sysfs.probed("hid") == ""


def test_door_opens_the_rest_when_one_cannot_be_opened(sysfs):
    """A device that goes meanwhile; a directory takes no value from root, either."""
    gone = sysfs.usb("1-1:1.0", 0)
    gone.unlink()
    gone.mkdir()
    stays = sysfs.usb("1-2:1.0", 0)
    result = open_door(sysfs)
    assert (result.returncode, result.stderr) == (0, "")
    assert stays.read_text() == "1\n"


def test_door_of_a_machine_without_usb(tmp_path):
    result = subprocess.run([ROOT / "packaging" / "open-door", tmp_path], check=False,
                            capture_output=True, text=True, timeout=60)
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")


def test_gate_finds_the_buses_and_may_open_their_devices():
    """DeviceAllow=char-NAME names nothing, for good, if the kernel has no such devices at the start of the unit."""
    modules = (ROOT / "packaging" / "modules-load.conf").read_text().splitlines()
    assert [line for line in modules if line and not line.startswith("#")] == ["usbcore", "hid", "usbhid"]
    after = [line for line in lines("vus-hotplug.service") if line.startswith("After=")]
    assert "systemd-modules-load.service" in after[0].split()
    assert "modules-load.conf RENAME vus.conf DESTINATION lib/modules-load.d" in (
        ROOT / "cmake" / "VusInstall.cmake").read_text()


def test_users_and_paths_of_the_units_are_made():
    users = (ROOT / "packaging" / "sysusers.conf").read_text()
    paths = (ROOT / "packaging" / "tmpfiles.conf").read_text()
    text = "\n".join(unit_text(template) for template in TEMPLATES)
    for kind, name in re.findall(r"^(User|Group)=(\S+)$", text, flags=re.M):
        assert re.search(rf"^{kind[0].lower()} {name} ", users, flags=re.M)
    for writable in re.findall(r"^ReadWritePaths=(.*)$", text, flags=re.M):
        for path in writable.split():
            assert re.search(rf"^d {path} ", paths, flags=re.M)
    directory = re.search(r'kConfigDir\[\] = "([^"]+)"',
                          (ROOT / "android" / "vus" / "paths.h").read_text()).group(1)
    assert f"L {directory} " in paths
    properties = re.search(r'kPropertyDir\[\] = "([^"]+)"',
                           (ROOT / "platform" / "property_store.h").read_text()).group(1)
    assert f"d {properties} " in paths


def ask(tmp_path, vusctl):
    """Runs the question with this vusctl; returns what the system manager was told to do."""
    for name, text in (("vusctl", vusctl), ("systemctl", f'echo "$*" >>{tmp_path}/told')):
        program = tmp_path / name
        program.write_text(f"#!/bin/sh\n{text}\n")
        program.chmod(0o755)
    subprocess.run([ROOT / "packaging" / "still-alive", "0.2"], check=True, capture_output=True, timeout=60,
                   env={**os.environ, "PATH": f"{tmp_path}:{os.environ['PATH']}"})
    told = tmp_path / "told"
    return told.read_text().splitlines() if told.exists() else []


def test_a_daemon_that_does_not_answer_is_killed(tmp_path):
    kill = "kill --kill-who=main --signal=KILL"
    assert ask(tmp_path, "exec sleep 60") == [f"{kill} vusd", f"{kill} vus-servicemanager"]


def test_neither_is_who_asks_kept_by_a_signal_that_he_does_not_hear(tmp_path):
    assert len(ask(tmp_path, "trap '' TERM; while :; do sleep 1; done")) == 2


@pytest.mark.parametrize("status", [0, 1, 3, 4])
def test_a_daemon_that_answers_or_is_not_there_is_left_alone(tmp_path, status):
    assert ask(tmp_path, f"exit {status}") == []
