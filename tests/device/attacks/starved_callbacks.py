# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack
from vdev.probe import SYSFS


class ATTACK(Attack):
    title = "Starved callbacks"
    who = "a client of the daemon that has been stopped, and a serial adapter"
    wants = "the adapter to work for as long as the daemon waits for the client"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = "A refusal is written before clients hear of it, and a client that hangs is passed over after 5 s."
    unwanted = r" 1-5:"

    def run(self, scene):
        scene.machine.shell("vusctl watch >/dev/null 2>&1 & echo $! >/tmp/watch.pid")
        scene.machine.wait_until("grep -q 'Size of callbacks at registerVusCallback 1$' /data/log/vusd.log")
        scene.machine.shell("kill -STOP $(cat /tmp/watch.pid)")
        scene.plug("usb-serial", "5")
        scene.refused("1-5")
        assert scene.probe.authorized("1-5") == ["0"] and scene.machine.exists(f"{SYSFS}/1-5")
