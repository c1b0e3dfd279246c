# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack
from vdev.probe import SYSFS

SEIZE = ("until [ -e {path}/devnum ]; do usleep 5000; done; "
         "exec vus_usbfs $(printf /dev/bus/usb/%03d/%03d $(cat {path}/busnum {path}/devnum)) seize:0,3 hold")


class ATTACK(Attack):
    title = "A node's holder"
    who = "a program that opens the node of a serial adapter as it appears, and takes its interface from every driver"
    wants = "to keep the interface when the adapter is refused"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = "The kernel takes a refused interface from whoever has claimed it, and gives it to nobody, descriptor or not."
    unwanted = r" 1-5:"
    counts_usbfs = True

    def run(self, scene):
        scene.machine.write("/tmp/seize.sh", SEIZE.format(path=f"{SYSFS}/1-5"))
        scene.machine.shell("sh /tmp/seize.sh >/tmp/seized 2>&1 & echo $! >/tmp/seize.pid")
        scene.plug("usb-serial", "5")
        scene.refused("1-5")
        scene.machine.wait_until("[ -s /tmp/seized ]")
        assert scene.usbfs("1-5", "claim:0")["claim:0"] == "No such device"
