# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack


class ATTACK(Attack):
    title = "A late driver"
    who = "a vendor's own HID device, plugged before HID's drivers are loaded"
    wants = "to be judged before anybody can tell what it is, and to get its driver then"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = "A HID device without driver has not settled: it is judged when its driver comes. The gate asks the device itself."
    unwanted = r" 1-5:| 0003:1FC9:0090"

    def run(self, scene):
        scene.machine.shell("rmmod hid_generic usbhid")
        scene.plug("programmer", "5")
        scene.machine.wait_until(lambda: scene.probe.answers("1-5"))
        scene.machine.shell("insmod /modules/usbhid.ko; insmod /modules/hid-generic.ko")
        scene.refused("1-5")
