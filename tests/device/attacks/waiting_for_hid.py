# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack
from vdev.usbredir import BOOT_MOUSE, INTERRUPT_IN, Description, Interface

ADAPTER = Description(0x0403, 0x6001, [Interface(3, 0, 0, (INTERRUPT_IN,), report=BOOT_MOUSE)], product_name="Mouse, it says")


class ATTACK(Attack):
    title = "A mouse that waits for its driver"
    who = ("a device with a serial adapter's ids and a mouse's descriptors, plugged when HID's driver is not loaded and the "
           "adapter's comes first")
    wants = "the adapter's driver, by the mouse's verdict: such a driver's module tries it on whatever is on, and asks nobody"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = ("What is let in as an input device is off until HID's own driver is there, and is on while that one has it. Load "
              "usbhid early, as the packages do.")
    unwanted = r"ftdi_sio 1-5:"

    def is_unwanted(self, trial):
        # From what is off the kernel turns a driver away before that has seen it.
        return trial.bound and super().is_unwanted(trial)

    def run(self, scene):
        scene.machine.shell("rmmod ftdi_sio hid_generic usbhid")
        scene.plug_described(ADAPTER, "5")
        scene.machine.wait_until("[ -e /sys/bus/usb/devices/1-5:1.0 ]")
        scene.wait_until_idle()
        scene.machine.shell("insmod /modules/ftdi_sio.ko")
        scene.wait_until_idle()
        scene.machine.shell("insmod /modules/usbhid.ko; insmod /modules/hid-generic.ko")
        if scene.setup == GATE:
            assert scene.probe.judged_input("Mouse, it says")["status"] == 1
        else:
            scene.refused("1-5")
