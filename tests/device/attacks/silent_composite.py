# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack
from vdev.usbredir import BULK_PAIR, VENDOR_PAGE, Description, Endpoint, Interface

SET_IDLE = 10
# The kernel gets to the second when it is done with the first.
DISK = Interface(255, 5, 0x50, BULK_PAIR)
SILENT = Interface(3, 0, 0, (Endpoint(0x83, 3, 8, 10),), report=VENDOR_PAGE)


class ATTACK(Attack):
    title = "A composite device with a silent interface"
    who = "a device of two interfaces: one is served by vendor and product, the other lets its driver wait"
    wants = "the first to work for as long as the kernel is not done with the second"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = ("Without the gate a device is judged when the kernel is done with it: 5 s later for each request that it leaves "
              "unanswered.")
    unwanted = r" 1-5:1\.0$"

    def run(self, scene):
        scene.plug_described(Description(0x0409, 0x0040, [DISK, SILENT], product_name="Half silent", stalls=True,
                                         unanswered=(SET_IDLE,)), "5")
        scene.refused("1-5")
