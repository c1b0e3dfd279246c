# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack
from vdev.probe import SYSFS

# The reporter's socket holds 8 MB of them.
EVENTS = 4500
LONG_EVENT = "change 01234567-89ab-cdef-0123-456789abcdef FILLER=" + "x" * 1400


class ATTACK(Attack):
    title = "Lost events"
    who = "a flood of events that the reporter has no time for, and a serial adapter whose own are lost in it"
    wants = "never to be heard of"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = "Who has lost an event compares everything present. Until then nobody knows: the time is that of the flood."
    unwanted = r" 1-5:"

    def run(self, scene):
        scene.machine.shell("kill -STOP $(cat /run/vus_hotplug.pid)")
        scene.machine.shell(f"event='{LONG_EVENT}'; n=0; while [ $n -lt {EVENTS} ]; do "
                            f"echo $event >{SYSFS}/usb1/uevent; n=$((n + 1)); done", seconds=120)
        assert self.lost(scene) > 0, "the flood was too small"
        before = self.lost(scene)
        scene.plug("usb-serial", "5")
        scene.machine.wait_until(lambda: self.lost(scene) > before)
        scene.machine.shell("kill -CONT $(cat /run/vus_hotplug.pid)")
        scene.refused("1-5")

    @staticmethod
    def lost(scene):
        """The last column but one of the kernel's table of netlink sockets."""
        return sum(int(line.split()[-2]) for line in scene.machine.read("/proc/net/netlink").splitlines()[1:])
