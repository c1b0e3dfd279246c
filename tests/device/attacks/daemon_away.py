# SPDX-License-Identifier: Apache-2.0
from attacking import DOCUMENTED, EXPOSED, FAIL_CLOSED, GATE, HELD, REPORTER, Attack
from vdev.probe import SYSFS


class ATTACK(Attack):
    title = "The daemon is away"
    who = "a serial adapter that comes when the daemon has been killed"
    wants = "not to be judged"
    expected = {REPORTER: DOCUMENTED, FAIL_CLOSED: EXPOSED, GATE: HELD}
    answer = ("The reporter alone waits for the daemon to come back, and has everything judged then. Take one of the others where "
              "that is too late.")
    unwanted = r" 1-5:"

    def run(self, scene):
        scene.stop_daemon()
        scene.plug("usb-serial", "5")
        scene.machine.wait_until(f"[ -e {SYSFS}/1-5:1.0 ]")
        scene.wait_until_idle()
