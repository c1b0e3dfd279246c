# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack


class ATTACK(Attack):
    title = "Ride along"
    who = "a disk that is a keyboard, too"
    wants = "to type, where disks are allowed and keyboards are not"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = "The disk works. Its keyboard is judged as the input device that it is."
    unwanted = r" 1-7:1\.1$| 0003:46F4:0BAD"

    def run(self, scene):
        scene.plug("typing-stick", "7")
        assert scene.probe.judged("1-7")["status"] == 1
        scene.refused_input("Stick that types")
