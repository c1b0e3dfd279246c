# SPDX-License-Identifier: Apache-2.0
from attacking import EXPOSED, GATE, HELD, REPORTER, Attack
from vdev.probe import SOC, SYSFS
from vdev.usbredir import BULK_PAIR, Description, Interface

MODE = f"{SOC}/a800000.ssusb/mode"
DISK = Description(0x1209, 0x0045, [Interface(8, 6, 0x50, BULK_PAIR)], product_name="Listed", stalls=True)
ADAPTER = Description(0x0403, 0x6001, [Interface(255, 0, 0, BULK_PAIR)], product_name="Successor")


class ATTACK(Attack):
    title = "A device number comes round"
    who = "a person with an allowed disk and a serial adapter, who swaps them while the board resets its controller"
    wants = "the disk's record for the adapter: numbers begin anew with a reset, as they do after 127 devices on a bus"
    expected = {REPORTER: EXPOSED, GATE: HELD}
    answer = "A record belongs to a device, not to a number: the removal of the one comes before the question about the other; and the gate switches on the device that it has looked at, or nothing."
    unwanted = r"ftdi_sio 1-1:"

    def run(self, scene):
        listed = scene.plug_described(DISK, "1")
        scene.machine.shell(f"echo none >{MODE}; echo host >{MODE}")
        assert scene.probe.judged("1-1")["status"] == 1
        number = scene.probe.device_id("1-1")
        scene.machine.shell(f"echo none >{MODE}")
        scene.machine.wait_until(f"[ ! -e {SYSFS}/1-1 ]")
        scene.machine.unplug(listed)
        scene.plug_described(ADAPTER, "1", "successor")
        scene.machine.shell(f"echo host >{MODE}")
        scene.refused("1-1")
        assert scene.probe.device_id("1-1") == number, "the number has not come round"
