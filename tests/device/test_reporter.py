# SPDX-License-Identifier: Apache-2.0
"""The reporter believes nothing: not what a device claims, not that it stays what it was, not that
its driver was there in time, that somebody answers, or that it heard everything. Without the gate,
behind which a refused device has no driver to begin with (see test_gate.py)."""

import pytest

from conftest import policy
from vdev import NO_GATE, RedirDevice
from vdev.probe import POLICY, SYSFS
from vdev.usbredir import Description, Endpoint, Interface

pytestmark = pytest.mark.reporter(NO_GATE)

STORAGE = "<class>USB_CLASS_MASS_STORAGE</class>"
KEYBOARD = "<class>AINPUT_SOURCE_KEYBOARD</class>"
NOT_LISTED = "No matching rule found to Whitelist the device"
BULK = (Endpoint(0x81), Endpoint(2))
LOG = "/data/log/vus_hotplug.log"

# What they claim, and who serves them: drivers that go by vendor and product alone.
FALSE_CLAIMS = {
    "1-5": (RedirDevice("serial-hub", "a serial adapter that calls itself a hub", lambda: Description(
        0x0403, 0x6001, [Interface(9, 5, 0, BULK)], product_name="Hub, it says")), "ftdi_sio", [9]),
    "1-6": (RedirDevice("disk-hub", "a disk that calls itself a hub", lambda: Description(
        0x0409, 0x0040, [Interface(9, 5, 0x50, BULK)], product_name="Hub, too")), "usb-storage", [9]),
    "1-7": (RedirDevice("serial-hid", "a serial adapter that calls itself HID", lambda: Description(
        0x0403, 0x6001, [Interface(3, 0, 0, BULK)], product_name="HID, it says")), "ftdi_sio", [255]),
}


def drivers(device, entry):
    return [interface.driver for interface in device.probe.interfaces(entry)]


def wait_switched_off(device, entry):
    device.machine.wait_until(lambda: set(device.probe.authorized(entry)) == {"0"}, seconds=60, what=f"{entry} off")
    assert set(drivers(device, entry)) == {"-"}


def wait_refused(device, entry, classes):
    """The disk among them never answers its driver, which keeps the kernel waiting."""
    wanted = 0, NOT_LISTED, classes

    def refused():
        record = device.probe.record(entry)
        return record and (record["status"], record["reason"], record["interfaceClassList"]) == wanted
    device.machine.wait_until(refused, seconds=90, what=f"{entry} refused")
    wait_switched_off(device, entry)


def start_reporter(device, *options):
    """Ends the reporter, and starts one of its own options."""
    stop_reporter(device)
    device.machine.shell(f"vus_hotplug --verbose {' '.join(options)} >>{LOG} 2>&1 & echo $! >/run/vus_hotplug.pid")


def stop_reporter(device):
    device.machine.shell("touch /run/vus_hotplug.hold; kill -9 $(cat /run/vus_hotplug.pid)")
    device.machine.wait_until(lambda: 137 in device.probe.ends("vus_hotplug"))


def stop_daemon(device):
    device.machine.shell("touch /run/vusd.hold; kill -9 $(cat /run/vusd.pid)")
    device.machine.wait_until("! vusctl list >/dev/null 2>&1")


def start_daemon(device):
    device.machine.shell("rm /run/vusd.hold")
    device.machine.wait_until("vusctl list >/dev/null 2>&1")


def test_a_service_manager_that_comes_back_is_asked(device):
    """On a host it is started again like any other service, and the daemon with it."""
    device.machine.shell("touch /run/vusd.hold /run/servicemanager.hold; kill -9 $(cat /run/vusd.pid) "
                         "$(cat /run/servicemanager.pid)")
    device.machine.wait_until(lambda: 137 in device.probe.ends("servicemanager") and 137 in device.probe.ends("vusd"))
    # By then the reporter has asked, and nobody was there.
    device.plug("disk", port="5")
    device.machine.wait_until(f"[ -e {SYSFS}/2-5:1.0 ]")
    assert device.machine.run("vusctl list")[0] == 3
    device.machine.shell("rm /run/servicemanager.hold /run/vusd.hold")
    assert device.probe.judged("2-5")["status"] == 1


def test_a_class_is_a_claim(device):
    for entry, (kind, driver, _) in FALSE_CLAIMS.items():
        device.machine.plug(kind, port=entry[2:])
        device.probe.judged(entry)
        device.machine.wait_until(lambda e=entry, d=driver: drivers(device, e) == [d], what=f"{driver} at {entry}")
    device.set_policy(STORAGE)
    for entry, (_, _, classes) in FALSE_CLAIMS.items():
        wait_refused(device, entry, classes)
    assert device.machine.run("ls /dev/ttyUSB* /dev/sd*")[1].count("No such file") == 2
    # The hubs that are hubs work.
    device.plug("disk", "2.4.1")
    assert device.probe.judged("1-2.4.1")["status"] == 1
    # Seen as they are now, they would be HID, and the input side's: a new daemon refuses them, too.
    stop_daemon(device)
    start_daemon(device)
    for entry, (_, _, classes) in FALSE_CLAIMS.items():
        wait_refused(device, entry, classes)


def test_a_refused_device_stays_off_when_its_configuration_is_switched(device):
    device.set_policy(STORAGE)
    device.plug("network", "5")
    device.probe.judged("1-5")
    wait_switched_off(device, "1-5")
    value = f"{SYSFS}/1-5/bConfigurationValue"
    device.machine.write("/tmp/switch.sh", f"""
        while [ ! -e /tmp/enough ]; do
            echo 1 >{value}; usleep 400000
            echo 2 >{value}; usleep 400000
        done""")
    device.machine.shell("sh /tmp/switch.sh >/tmp/switch.log 2>&1 &")
    device.machine.write("/tmp/look.sh", f"""
        for look in $(seq 100); do
            ls -d {SYSFS}/1-5:*/driver 2>/dev/null | head -n 1
            usleep 90000
        done
        touch /tmp/enough""")
    on = device.machine.shell("sh /tmp/look.sh", seconds=120)
    assert device.machine.run(f"grep 'closed 1-5: its interfaces have come back' {LOG}")[0] == 0
    assert len(on.split()) <= 1
    assert device.probe.record("1-5")["status"] == 0
    # Nothing but a new plug, or a reset, brings it back; it is judged then.
    device.set_policy("<class>USB_CLASS_COMM</class><class>USB_CLASS_CDC_DATA</class>")
    assert device.probe.judged("1-5", "Whitelisted: Match by ClassName, CLASS : USB_CLASS_COMM USB_CLASS_CDC_DATA ")
    assert set(device.probe.authorized("1-5")) == {"1"}


def test_drivers_that_come_late(device):
    device.set_policy(KEYBOARD)
    device.machine.shell("rmmod hid_generic usbhid")
    device.plug("programmer", "5")
    device.machine.wait_until(lambda: device.probe.words("1-5") == {"not-allowed"})
    assert device.probe.authorized("1-5") == ["1"] and device.probe.record("1-5") is None
    device.machine.shell("insmod /modules/usbhid.ko")
    device.plug("keyboard", "1")
    device.machine.wait_until(f"ls {SYSFS}/1-1:1.0/0003:*")
    device.machine.shell("insmod /modules/hid-generic.ko")
    # The one becomes a vendor's own HID, the other a keyboard.
    assert device.probe.judged("1-5")["reason"] == NOT_LISTED
    wait_switched_off(device, "1-5")
    assert device.probe.judged_input("Keyboard")["status"] == 1
    device.machine.wait_until(lambda: device.probe.authorized("1-1") == ["1"])
    assert device.probe.record("1-1") is None
    assert device.probe.functions("1-5") == set()


def test_nobody_answers(device):
    device.machine.shell("kill -STOP $(cat /run/vusd.pid)")
    device.plug("webcam", "5")
    wait_switched_off(device, "1-5")
    assert device.machine.run(f"grep 'closed 1-5: no answer within 2 s' {LOG}")[0] == 0
    device.machine.shell("kill -CONT $(cat /run/vusd.pid)")
    assert device.probe.judged("1-5")["status"] == 1
    device.machine.wait_until(lambda: set(device.probe.authorized("1-5")) == {"1"}, what="the webcam on")


def test_nobody_is_there_to_answer(device):
    start_reporter(device, "--fail-closed")
    device.plug("webcam", "5")
    device.probe.judged("1-5")
    stop_daemon(device)
    device.plug("usb-serial", "6")
    device.plug("keyboard", "1")
    for entry in ("1-6", "1-1"):
        wait_switched_off(device, entry)
    assert set(device.probe.authorized("1-5")) == {"1"}, "what was allowed stays"
    start_daemon(device)
    device.machine.wait_until(lambda: drivers(device, "1-6") == ["ftdi_sio"])
    assert device.probe.judged_input("Keyboard")["status"] == 1


def test_nobody_reads_its_output(device):
    stop_reporter(device)
    # The pipe is full when the reporter begins.
    device.machine.shell("(dd if=/dev/zero bs=64k count=1 2>/dev/null; exec vus_hotplug --verbose 2>&1) | "
                         "sleep 1000 >/dev/null 2>&1 &")
    device.plug("webcam", "5")
    device.probe.judged("1-5")
    device.machine.unplug("webcam")
    device.machine.wait_until(lambda: device.probe.records() == [])


def test_what_happened_while_the_reporter_was_away(device):
    for kind, port in (("keyboard", "1"), ("webcam", "5"), ("headset", "6")):
        device.plug(kind, port)
    device.probe.judged("1-5")
    device.probe.judged("1-6")
    device.machine.wait_until(lambda: len(device.probe.records()) == 4)
    stop_reporter(device)
    for kind in ("keyboard", "webcam"):
        device.machine.unplug(kind)
    device.plug("programmer", "5")
    device.machine.wait_until(f"[ -e {SYSFS}/1-5:1.0 ] && [ ! -e {SYSFS}/1-1 ]")
    assert len(device.probe.records()) == 4
    device.machine.shell("rm /run/vus_hotplug.hold")
    names = ["Example Headset", "Headset", "Programmer"]
    device.machine.wait_until(lambda: sorted(r["deviceName"] for r in device.probe.records()) == names)


def test_a_refused_input_device_is_kept_out(device):
    device.set_policy(STORAGE)
    device.plug("keyboard", "1")
    record = device.probe.judged_input("Keyboard")
    assert (record["status"], record["reason"]) == (0, NOT_LISTED)
    device.machine.wait_until("[ ! -e /dev/hidraw0 ] && ! ls /dev/input/event*")
    assert device.probe.authorized("1-1") == ["1"] and device.probe.record("1-1") is None
    assert device.probe.judged_input("Keyboard")["status"] == 0, "it is still listed"
    # A daemon with another policy lets it in, without a plug or a reset.
    stop_daemon(device)
    device.machine.write(POLICY, policy(KEYBOARD))
    start_daemon(device)
    device.machine.wait_until("[ -e /dev/hidraw0 ] && ls /dev/input/event*")
    device.machine.wait_until(lambda: [r["status"] for r in device.probe.records()] == [1])
    device.machine.unplug("keyboard")
    device.machine.wait_until(lambda: device.probe.records() == [])


def test_a_refused_input_device_that_is_pulled_is_gone(device):
    device.set_policy(STORAGE)
    device.plug("keyboard", "1")
    device.machine.wait_until(f"grep -q 'closed input' {LOG}")
    device.machine.unplug("keyboard")
    device.machine.wait_until(lambda: device.probe.records() == [])
