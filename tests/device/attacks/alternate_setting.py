# SPDX-License-Identifier: Apache-2.0
from attacking import GATE, HELD, REPORTER, Attack
from vdev.usbredir import BOOT_KEYBOARD, BULK_PAIR, INTERRUPT_IN, Description, Interface

TWO_SETTINGS = Interface(8, 6, 0x50, BULK_PAIR, alternates=(Interface(3, 1, 1, (INTERRUPT_IN,), report=BOOT_KEYBOARD),))


class ATTACK(Attack):
    title = "Another alternate setting"
    who = ("a disk whose interface is a keyboard in its other alternate setting, and a program that was given the allowed "
           "disk's node")
    wants = "a keyboard out of an interface that has its verdict"
    expected = {REPORTER: HELD, GATE: HELD}
    answer = ("An interface of another class than was judged is judged anew when a driver comes. Who has the node of an allowed "
              "device may have usbhid take it, the gate or not. With this one usbhid gives up before there is a HID "
              "device.")
    # Not usbhid itself: see above.
    unwanted = r" 0003:1209:0040"

    def run(self, scene):
        scene.plug_described(Description(0x1209, 0x0040, [TWO_SETTINGS], product_name="Both", stalls=True), "5")
        assert scene.probe.judged("1-5")["status"] == 1
        answers = scene.usbfs("1-5", "disconnect:0", "claim:0", "alternate:0,1", "release:0", "connect:0")
        assert answers["alternate:0,1"] == "ok"
        scene.wait_until_idle()
