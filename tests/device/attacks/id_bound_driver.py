# SPDX-License-Identifier: Apache-2.0
from attacking import DOCUMENTED, REPORTER, Attack
from vdev.usbredir import BULK_PAIR, Description, Interface


class ATTACK(Attack):
    title = "An id-bound driver behind a listed class"
    who = "a serial adapter that says class 8 (storage), with a subclass that no storage driver takes"
    wants = "to be a serial adapter where only disks are allowed"
    expected = {REPORTER: DOCUMENTED}
    answer = ("A class in a policy is a device's claim, and thousands of entries of the kernel's drivers go by ids alone. "
              "Name ids instead of classes where it matters, and build a kernel without drivers that nobody needs.")
    unwanted = r" 1-5:"

    def run(self, scene):
        scene.plug_described(Description(0x0403, 0x6001, [Interface(8, 0xFF, 0xFF, BULK_PAIR)], product_name="Disk, it says"), "5")
        assert scene.probe.judged("1-5")["status"] == 1
        scene.machine.wait_until("[ -e /dev/ttyUSB0 ]")
