# SPDX-License-Identifier: Apache-2.0
"""vusctl and the dump, over real binder."""

import time


def test_a_missing_service_is_an_error_at_once(device):
    device.machine.shell("touch /run/vusd.hold; kill -9 $(cat /run/vusd.pid)")
    device.machine.wait_until(lambda: device.probe.ends("vusd"))
    for command in ("list", "judge --id 901 --interfaces 7", "reset", "undock 5", "dump", "watch",
                    "policy set /etc/profile"):
        start = time.monotonic()
        status, text = device.machine.run(f"vusctl {command} 2>&1")
        assert (status, text) == (3, "vusctl: the daemon is not running\n"), command
        # libbinder's getService() would wait for 5 s.
        assert time.monotonic() - start < 4, command


def test_usage_errors(device):
    for command in ("", "frobnicate", "list --xml", "judge --vid", "judge --vid x", "undock", "undock 0",
                    "undock -5", "policy", "policy set", "reset now"):
        status, text = device.machine.run(f"vusctl {command} 2>/dev/null")
        assert (status, text) == (2, ""), command
    assert device.machine.run("vusctl --help")[0] == 0


def test_judging_a_described_device(device):
    device.set_policy("<class>USB_CLASS_PRINTER</class>")
    note = "vusctl: the real daemon now lists this device: vusctl forget {} takes it out\n"
    assert device.machine.run("vusctl judge --id 901 --interfaces 7") == (
        0, "allowed\nWhitelisted: Match by ClassName, CLASS : USB_CLASS_PRINTER \n" + note.format(901))
    assert device.machine.run("vusctl judge --id 902 --interfaces 1 --vid 0x046d") == (
        1, "not allowed\nNo matching rule found to Whitelist the device\n" + note.format(902))
    assert device.machine.run("vusctl forget 901") == (0, "")
    assert [record["deviceId"] for record in device.probe.records()] == [902]


def test_a_record_that_claims_more_than_it_holds_is_answered(device):
    daemon = device.machine.read("/run/vusd.pid")
    for classes in (1, 30_000_000, 2_147_483_647):
        assert device.machine.run(f"vus_malformed_call {classes}") == (0, "-22\n-22\n"), classes
    assert device.machine.run("vusctl judge --id 901 --interfaces 7")[0] == 0
    assert [record["deviceId"] for record in device.probe.records()] == [901]
    assert device.machine.read("/run/vusd.pid") == daemon
    log = device.machine.read("/data/log/vusd.log")
    assert log.count("a call claims more interface classes than it holds") == 6


def test_the_dump_without_devices(device):
    assert device.machine.shell("vusctl dump") == "USB DEVICE INFO "


def test_the_dump_byte_for_byte(device):
    device.plug("headset", "6")
    record = device.probe.judged("1-6")
    device.probe.judged_input("Headset")
    assert device.machine.shell("vusctl dump") == (
        "USB DEVICE INFO "
        "\nDevice name : Example Headset"
        "\n   Device type(1=HID/0=Non-HID) : 1"
        "\n   DeviceID : 0"
        "\n   Device class name : AINPUT_SOURCE_KEYBOARD;"
        "\n   Restricted class name : <none>"
        "\n   Device Vendor Id : 3468"
        "\n   Device Product Id : 20"
        "\n   Device status(1-enabled/0-disabled): 1"
        "\n   Reason : Enabled by default rule\n"
        "\nDevice name : Headset"
        "\n   Device type(1=HID/0=Non-HID) : 0"
        f"\n   DeviceID : {record['deviceId']}"
        "\n   Device class name : USB_CLASS_AUDIO;"
        "\n   Restricted class name : USB_CLASS_HID;"
        "\n   Device Vendor Id : 3468"
        "\n   Device Product Id : 20"
        "\n   Device status(1-enabled/0-disabled): 1"
        "\n   Reason : Enabled by default rule\n")


def test_the_dump_of_the_usb_tree(device):
    device.plug("webcam", "2.4.1")
    device.probe.judged("1-2.4.1")
    text = device.machine.shell("vusctl dump test")
    assert text.startswith("USB Test \n")
    assert "/sys/bus/usb/devices/1-2.4.1  /dev/bus/usb/001/" in text
    assert "parent name :1-2.4\nparent_portnum:4\n************************\n" in text
    # Two hubs with an interface each, and the webcam with two.
    assert "DeviceIdMap size4\n" in text
    assert device.machine.shell("vusctl dump TEST") == ""
