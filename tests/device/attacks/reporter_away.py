# SPDX-License-Identifier: Apache-2.0
from attacking import DOCUMENTED, GATE, HELD, REPORTER, Attack
from vdev.probe import SYSFS


class ATTACK(Attack):
    title = "The reporter is away"
    who = "a serial adapter that comes when the reporter has been killed"
    wants = "nobody to hear of it"
    expected = {REPORTER: DOCUMENTED, GATE: HELD}
    answer = ("Without the gate the kernel binds drivers to what nobody hears of, until the supervisor has started the reporter "
              "again. The gate's door stays shut.")
    unwanted = r" 1-5:"

    def run(self, scene):
        scene.machine.shell("kill -9 $(cat /run/vus_hotplug.pid)")
        scene.plug("usb-serial", "5")
        scene.machine.wait_until(f"[ -e {SYSFS}/1-5 ]")
