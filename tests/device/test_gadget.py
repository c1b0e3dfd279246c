# SPDX-License-Identifier: Apache-2.0
"""The devices that the guest's own kernel plays, while their controller is switched off and on."""

from vdev.probe import SOC, SYSFS

CONTROLLER = "c200000.hsusb"
MODE = f"{SOC}/{CONTROLLER}/mode"
PRESENT = f"[ -e {SYSFS}/3-1:1.0 ]"
UP = "gadget up one 0x0525 0xa4a7 Example 'Serial adapter' acm"
DOWN = "gadget down one"


def assert_waits_for_the_controller(machine, command):
    machine.shell(f"echo none >{MODE}; rm -f /tmp/status /tmp/trace")
    # The shell's trace tells when it has come to the waiting.
    machine.shell(f"(sh -x /usr/bin/{command} 2>/tmp/trace; echo $? >/tmp/status) >/dev/null 2>&1 &")
    machine.wait_until("grep -q usleep /tmp/trace")
    assert not machine.exists("/tmp/status")
    machine.shell(f"echo host >{MODE}")
    machine.wait_until("grep -q . /tmp/status")
    assert machine.read("/tmp/status") == "0\n"


def test_a_gadget_waits_for_a_controller_that_is_off(device):
    """The kernel would take the writer down with it: seen as status 139, and nothing could be
    plugged any more."""
    assert_waits_for_the_controller(device.machine, UP)
    device.machine.wait_until(PRESENT)
    assert_waits_for_the_controller(device.machine, DOWN)
    assert not device.machine.exists(f"{SYSFS}/3-1")
    assert device.machine.run("dmesg | grep -E 'Oops|BUG'") == (1, "")


def test_a_gadget_stays_in_its_port_through_resets(device):
    device.machine.shell(UP)
    device.probe.judged("3-1")
    for resets in (1, 2, 3):
        device.machine.shell("vusctl reset")
        device.machine.wait_until(lambda: device.mode_writes(CONTROLLER)[0] == ["none", "host"] * resets)
        # Judged once more: the number of the device may be the same again.
        device.machine.wait_until(lambda: device.probe.answers("3-1").count("allowed") == resets + 1)
    device.machine.shell(DOWN)
    device.machine.wait_until(lambda: device.probe.records() == [])
