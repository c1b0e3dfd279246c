# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack

FULL = ("mkfifo {pipe}; sh -c 'exec 3<>{pipe}; while :; do sleep 1000; done' & sleep 0.1; "
        "timeout 1 dd if=/dev/zero of={pipe} bs=65536 count=1 2>/dev/null; ")


class ATTACK(Attack):
    title = "Blocked logs"
    who = "whoever should read what the daemon and the reporter print, and does not"
    wants = "both to stand still at their next line"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = "Lines for which there is no room are dropped, and counted."
    unwanted = r" 1-5:"

    def run(self, scene):
        self.restart(scene, "vusd", "/system_ext/bin/vusd")
        scene.machine.wait_until("vusctl list >/dev/null 2>&1")
        self.restart(scene, "vus_hotplug", f"vus_hotplug --verbose {scene.setup.options}")
        scene.wait_until_idle()
        scene.plug("usb-serial", "5")
        scene.refused("1-5")

    @staticmethod
    def restart(scene, service, command):
        pipe = f"/tmp/{service}.full"
        scene.machine.shell(FULL.format(pipe=pipe) + f"touch /run/{service}.hold; kill -9 $(cat /run/{service}.pid); "
                            f"{command} >{pipe} 2>&1 & echo $! >/run/{service}.pid")
