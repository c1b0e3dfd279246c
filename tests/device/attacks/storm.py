# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack

PORTS = ("1", "3", "4", "5", "6", "7")


class ATTACK(Attack):
    title = "A storm of devices"
    who = "devices that are in and out of six ports faster than anybody can judge them"
    wants = "to be overlooked, one of them, in the end"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = "Each is judged by what is there when it is its turn; those that are there in the end are all off."
    unwanted = r" 1-\d:| 0003:"

    def run(self, scene):
        for round_ in range(2):
            for port in PORTS:
                scene.plug("programmer", port, f"round-{round_}-{port}")
            for port in PORTS[round_:]:
                scene.machine.unplug(f"round-{round_}-{port}")
        for port in PORTS[1:]:
            scene.plug("programmer", port, f"last-{port}")
        for port in PORTS:
            scene.refused(f"1-{port}")
