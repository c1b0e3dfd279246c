# SPDX-License-Identifier: Apache-2.0
"""A prompt in the virtual device: what ./run shell shows.

Lines go to the guest's shell, except those that plug and unplug devices, which are done here:
a device is plugged into the machine, not by it.
"""

import shlex
import sys

from vdev import CATALOG, Machine, MachineError

HELP = """\
You are root in the virtual device. On its path: vusctl, devices, getprop, setprop, gadget,
vus_hotplug and busybox; the logs are in /data/log. Beside these:

  plug NAME [PORT]   plug a device; without a name, list them
  unplug NAME        take it out
  plugged            what is plugged
  help, exit

Ports 1 to 8; port 2 has a hub (2.1 to 2.8), its port 4 another (2.4.1 to 2.4.8). For a start:
plug disk 3, vusctl list, devices. A device has no driver before its verdict.
"""


def catalog():
    return "".join(f"  {device.name:<14}{device.summary}\n" for device in CATALOG.values())


def plug(machine, words):
    if not words:
        return catalog()
    if words[0] not in CATALOG:
        return f"no device {words[0]}; there are:\n{catalog()}"
    machine.plug(CATALOG[words[0]], port=words[1] if len(words) > 1 else None)
    return ""


def answer(machine, line):
    """The text that a line gives."""
    try:
        words = shlex.split(line)
    except ValueError:
        words = []
    if words[:1] == ["plug"]:
        return plug(machine, words[1:])
    if words[:1] == ["unplug"] and len(words) == 2:
        machine.unplug(words[1])
        return ""
    if words == ["plugged"]:
        return "".join(name + "\n" for name in machine.plugged())
    if words == ["help"]:
        return HELP
    return machine.run(line, seconds=3600)[1]


def run():
    interactive = sys.stdin.isatty()
    with Machine() as machine:
        print(HELP, end="")
        while True:
            if interactive:
                print("vus # ", end="", flush=True)
            line = sys.stdin.readline()
            if not line or line.strip() == "exit":
                return 0
            if not line.strip():
                continue
            try:
                print(answer(machine, line.rstrip("\n")), end="", flush=True)
            except MachineError as error:
                print(f"error: {error}", flush=True)
