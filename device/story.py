# SPDX-License-Identifier: Apache-2.0
"""The daemon at its work, on real devices in the virtual device: what ./run shows.

Every scene compares what it saw (the verdict, the reason, each interface's `authorized`, what
appeared and what vanished) with what had to be seen; the exit status is 0 only if all agreed.
"""

import argparse
import json
import sys
import time

import shell
from vdev import CATALOG, NO_GATE, Machine, MachineError, Probe, wait_for_gate
from vdev.probe import BACKUP, POLICY, SOC, SYSFS
from vdev.trials import Trials

WHITELIST = """<usbconfig mode="whitelist">
  <class>USB_CLASS_MASS_STORAGE</class>
  <class>AINPUT_SOURCE_KEYBOARD</class>
  <vid vendorid="9601"><pid>61904</pid></vid>
</usbconfig>
"""
BLACKLIST = """<usbconfig mode="blacklist">
  <class>USB_CLASS_MASS_STORAGE</class>
</usbconfig>
"""
BROKEN = """<usbconfig mode="whitelist">
  <class>USB_CLASS_DISK</class>
</usbconfig>
"""

# It lists one product of vendor 1027, and means no other: but vendor 1208, which is higher, is listed whole.
NEW = """<usbconfig mode="whitelist">
  <class>USB_CLASS_MASS_STORAGE</class>
  <class>AINPUT_SOURCE_KEYBOARD</class>
  <vid vendorid="1027"><pid>24577</pid></vid>
  <vid vendorid="1208"/>
</usbconfig>
"""

ONLY_STORAGE = """<usbconfig mode="whitelist">
  <class>USB_CLASS_MASS_STORAGE</class>
</usbconfig>
"""

NO_WHITELIST_RULE = "No matching rule found to Whitelist the device"
NO_BLACKLIST_RULE = "No matching rule found to Blacklist the device"
DEFAULT_RULE = "Enabled by default rule"
STORAGE_RULE = "Whitelisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE "
KEYBOARD_RULE = "Whitelisted: Match by ClassName, CLASS : AINPUT_SOURCE_KEYBOARD "


class Page:
    """Prints the story, and counts what was not as it had to be."""

    def __init__(self, stream, colour):
        self._stream = stream
        self._colour = colour
        self.checks = 0
        self.wrong = 0

    def _painted(self, text, code):
        return f"\033[{code}m{text}\033[0m" if self._colour else text

    def scene(self, title):
        print(f"\n{self._painted(title, '1')}", file=self._stream, flush=True)

    def tell(self, label, text, code=None):
        lines = text.splitlines() or [""]
        for number, line in enumerate(lines):
            body = self._painted(line, code) if code else line
            print(f"  {label if number == 0 else '':<12}{body}".rstrip(), file=self._stream, flush=True)

    def verdict(self, label, allowed, reason):
        self.tell(label, f"{'allowed' if allowed else 'REFUSED'}: {reason}", "32" if allowed else "31")

    def expect(self, what, seen, wanted):
        self.checks += 1
        if seen != wanted:
            self.wrong += 1
            self.tell("WRONG", f"{what}: {seen!r} instead of {wanted!r}", "1;31")


class Story:
    def __init__(self, machine, page):
        self.machine = machine
        self.page = page
        self.probe = Probe(machine)

    # Showing.

    def show_interfaces(self, label, entry):
        self.page.tell(label, "\n".join(map(str, self.probe.interfaces(entry))))

    def check_record(self, what, record, allowed, reason):
        self.page.verdict(what, record["status"] == 1, record["reason"])
        self.page.expect("verdict", record["status"], int(allowed))
        self.page.expect("reason", record["reason"], reason)

    def check_authorized(self, entry, wanted):
        for interface in self.probe.interfaces(entry):
            self.page.expect(f"authorized of {interface.entry}", interface.authorized, wanted)

    def plug_unseen(self, name, port, entry):
        """Plugs a device while the hot-plug component is stopped, for a look at what the device
        is before anybody judges it: nothing at all."""
        device = CATALOG[name]
        self.machine.shell("kill -STOP $(cat /run/vus_hotplug.pid)")
        self.machine.plug(device, port=port)
        self.machine.wait_until(f"[ -e {SYSFS}/{entry}/idVendor ]", what=f"{name} at {entry}")
        self.page.tell("plugged", f"{device.summary}, at {entry}")
        self.page.tell("before", "held: no driver, no configuration, no interface")
        self.page.expect("interfaces before the verdict", self.probe.interfaces(entry), [])
        self.machine.shell("kill -CONT $(cat /run/vus_hotplug.pid)")

    def plug(self, name, entry, allowed, reason, port=None, appears=()):
        """A device that is judged as a USB device."""
        self.plug_unseen(name, port, entry)
        self.check_record("verdict", self.probe.judged(entry), allowed, reason)
        self.after(entry, appears, allowed)

    def after(self, entry, appears, allowed):
        """What appeared of what it brings."""
        wanted = set(appears) if allowed else set()
        self.machine.wait_until(lambda: self.probe.functions(entry) >= wanted, what=f"{', '.join(appears)} at {entry}")
        self.show_interfaces("after", entry)
        seen = self.probe.functions(entry)
        self.page.tell("appeared", ", ".join(sorted(seen)) or "nothing")
        self.check_authorized(entry, "1" if allowed else "0")
        self.page.expect("what appeared", seen & set(appears), wanted)
        if not allowed:
            self.page.expect("all that appeared", seen, set())
            self.page.expect("drivers", {interface.driver for interface in self.probe.interfaces(entry)}, {"-"})

    def plug_keyboard(self, allowed, reason):
        """A device that is HID only: an input device, which the USB side is not asked about."""
        self.plug_unseen("keyboard", "1", "1-1")
        self.page.tell("usb side", "not asked: by its report descriptor it is nothing but an input device")
        self.check_record("input side", self.probe.judged_input("Keyboard"), allowed, reason)
        self.page.expect("record of the USB side", self.probe.record("1-1"), None)
        self.check_authorized("1-1", "1")

    def set_policy(self, text):
        """Rewrites the policy as an administrator would, and says how long it took to answer."""
        self.page.tell("policy", text)
        self.machine.write("/tmp/policy.xml", text)
        start = time.monotonic()
        status, answer = self.machine.run("vusctl policy set /tmp/policy.xml")
        self.page.tell("status", f"{answer.strip()} ({(time.monotonic() - start) * 1000:.0f} ms)")
        self.page.expect("answer to the policy", (status, answer.strip()), (0, "SUCCESS"))

    # The scenes.

    def start(self):
        self.page.scene("1. The device starts: no policy but the default one")
        self.machine.wait_until("vusctl list", what="the service")
        wait_for_gate(self.machine)
        self.page.tell("booted", f"in {self.machine.boot_seconds:.1f} s, 64-bit Arm, "
                       f"Linux {self.machine.shell('uname -r').strip()}, emulated")
        self.page.tell("policy", self.machine.read(POLICY))
        self.page.tell("status", self.machine.shell("vusctl status").strip())
        self.page.expect("status", self.machine.shell("vusctl status").strip(), "SUCCESS")

    def default_policy(self):
        self.page.scene("2. Under the default policy everything is allowed")
        self.plug_keyboard(True, DEFAULT_RULE)
        self.plug("disk", "2-3", True, DEFAULT_RULE, port="3", appears=["sda"])
        self.plug("serial", "3-1", True, DEFAULT_RULE, appears=["ttyACM0"])

    def whitelist(self):
        self.page.scene("3. A whitelist, while three devices are attached: they are enumerated and judged again")
        self.set_policy(WHITELIST)
        self.check_record("disk", self.probe.judged("2-3", STORAGE_RULE), True, STORAGE_RULE)
        self.check_record("serial", self.probe.judged("3-1", NO_WHITELIST_RULE), False, NO_WHITELIST_RULE)
        self.show_interfaces("", "3-1")
        self.check_authorized("3-1", "0")
        self.page.expect("what is left of the serial adapter", self.probe.functions("3-1"), set())
        self.check_record("keyboard", self.probe.judged_input("Keyboard", KEYBOARD_RULE), True, KEYBOARD_RULE)
        self.machine.unplug("serial")

    def one_by_one(self):
        self.page.scene("4. Under the whitelist, one device after the other")
        self.plug("network", "1-4", False, NO_WHITELIST_RULE, port="4", appears=["usb0"])
        self.plug("usb-serial", "1-5", False, NO_WHITELIST_RULE, port="5", appears=["ttyUSB0"])
        self.plug("dock", "3-1", False, NO_WHITELIST_RULE, appears=["usb1", "ttyACM0", "sdb", "hidraw1"])
        self.plug("security-key", "1-6", True,
                  "Whitelisted: Match by VID_PID combination, VID : 9601 PID: 61904", port="6", appears=["hidraw1"])
        self.plug("programmer", "1-2.1", False, NO_WHITELIST_RULE, port="2.1", appears=["hidraw2"])
        self.plug("typing-stick", "1-2.4.1", True, STORAGE_RULE, port="2.4.1", appears=["hidraw2", "input2"])
        self.check_record("input side", self.probe.judged_input("Stick that types"), True, KEYBOARD_RULE)
        for name in ("network", "usb-serial", "dock", "security-key", "programmer", "typing-stick"):
            self.machine.unplug(name)
        self.machine.wait_until(lambda: len(self.probe.records()) == 2, what="six removals")
        self.page.tell("unplugged", "six devices; the daemon's list:")
        self.page.tell("", self.machine.shell("vusctl list"))

    def blacklist(self):
        self.page.scene("5. The policy becomes a blacklist: the disk, still plugged, is switched off")
        self.set_policy(BLACKLIST)
        reason = "Blacklisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE "
        self.check_record("verdict", self.probe.judged("2-3", reason), False, reason)
        self.after("2-3", ["sda"], False)

    def broken_policy(self):
        self.page.scene("6. A broken policy is refused, and the last good one put back")
        good = self.machine.read(BACKUP)
        self.page.tell("policy", BROKEN)
        self.machine.write(POLICY, BROKEN)  # past vusctl, which would not have written it
        self.machine.wait_until(lambda: self.machine.read(POLICY) == good, what="the roll-back")
        status = self.machine.shell("vusctl status").strip()
        self.page.tell("status", status)
        self.page.expect("status", status, "INVALID CLASS VALUE:USB_CLASS_DISK")
        self.page.tell("policy", "rolled back: " + self.machine.read(POLICY).splitlines()[0])
        verdict = self.machine.wait_until(self._judge_printer, what="the old rules in force")
        self.page.verdict("a printer", True, verdict)
        self.page.expect("verdict on a printer", verdict, NO_BLACKLIST_RULE)

    def _judge_printer(self):
        self.machine.run("vusctl judge --id 999 --interfaces 7 --name Printer")
        return next((record["reason"] for record in self.probe.records() if record["deviceId"] == 999), None)

    def undock_by_properties(self):
        self.page.scene("7. A virtual undock of 600 ms, without a DisplayLink dock: by system properties")
        self.machine.shell("vusctl undock 600 & echo $! > /tmp/undock.pid")
        self.machine.wait_until("[ -n \"$(getprop persist.vendor.monitor.undock)\" ]")
        self.page.expect("dock property during the undock", self.machine.shell("getprop persist.vendor.monitor.dock").strip(), "")
        self.page.tell("at once", "persist.vendor.monitor.undock = 1, persist.vendor.monitor.reset = 1")
        self.machine.wait_until("[ -n \"$(getprop persist.vendor.monitor.dock)\" ]")
        self.page.tell("later", "persist.vendor.monitor.dock = 1")
        self.machine.wait_until("! kill -0 $(cat /tmp/undock.pid) 2>/dev/null")

    def undock_by_controller(self):
        self.page.scene("8. A virtual undock of 500 ms, with a DisplayLink dock: by its controller")
        self.machine.plug(CATALOG["displaylink"], port="7")
        self.probe.judged("1-7")
        self.show_interfaces("plugged", "1-7")
        log = f"{SOC}/a600000.ssusb/mode_log"
        self.machine.shell(f"echo > {log}; vusctl undock 500")
        writes = [line.split() for line in self.machine.read(log).splitlines()]
        for at, value in writes:
            self.page.tell(f"{(int(at) - int(writes[0][0])) / 1000:.0f} ms", f"a600000.ssusb/mode = {value}")
        self.page.expect("writes to the controller's mode", [value for _, value in writes], ["none", "host"])
        self.probe.judged("1-7")
        self.page.tell("after", "the dock is enumerated and judged again")
        self.machine.unplug("displaylink")

    def crash(self):
        self.page.scene("9. The daemon crashes, and comes back with the last good policy")
        good = self.machine.read(BACKUP)
        self.machine.shell("touch /run/vusd.hold; kill -SEGV $(cat /run/vusd.pid)")
        ends = self.machine.wait_until(lambda: self.probe.ends("vusd"), what="the end of the daemon")
        self.page.tell("ended", f"with exit status {ends[-1]}")
        self.page.expect("exit statuses", ends, [11])
        status = self.machine.shell("vusctl status").strip()
        self.page.tell("status", status)
        self.page.expect("status", status, "Unable to apply the USB Admin config rules")
        self.page.expect("policy after the crash", self.machine.read(POLICY), good)
        trace = self.machine.shell("grep -A3 'Stack Trace' /data/log/vusd.log | tail -1").strip()
        self.page.tell("log", trace.split("] ", 1)[-1])
        self.machine.shell("rm /run/vusd.hold")
        record = self.probe.judged("2-3")
        self.page.tell("back", "the disk, found present, is judged again:")
        self.check_record("", record, False,
                          "Blacklisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE ")

    def workbench(self):
        self.page.scene("10. The workbench: what a policy would do, and a policy on trial")
        good = self.machine.read(POLICY)
        self.page.tell("policy", NEW)
        self.machine.write("/tmp/new.xml", NEW)
        self.show_command("check", "vusctl policy check /tmp/new.xml | grep -A 6 error:", "products-count-as-whole")
        self.show_command("explain", "vusctl policy explain /tmp/new.xml --interfaces 255 --vid 1027 --pid 7",
                          "counts as listed whole")
        self.show_command("diff", f"vusctl policy diff {POLICY} /tmp/new.xml | head -n 6", "admitted now, refused before:")
        self.show_command("try", "vusctl policy try /tmp/new.xml --seconds 3", "on trial for 3 s")
        self.check_record("the disk", self.probe.judged("2-3", STORAGE_RULE), True, STORAGE_RULE)
        self.page.expect("policy on disk during the trial", self.machine.read(POLICY), good)
        reason = "Blacklisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE "
        self.check_record("3 s later", self.probe.judged("2-3", reason), False, reason)
        self.page.expect("policy after the trial", self.machine.read(POLICY), good)
        self.page.expect("status after the trial", self.machine.run("vusctl status"), (0, "SUCCESS\n"))
        # What goes before it is judged counts as exposed, and it is about to be unplugged.
        self.check_record("keyboard", self.probe.judged_input("Keyboard", NO_BLACKLIST_RULE), True, NO_BLACKLIST_RULE)

    def show_command(self, label, command, expected):
        output = self.machine.run(command)[1]
        self.page.tell(label, output)
        self.page.expect(f"output of {label}", expected in output, True)

    def plug_what_is_refused(self):
        """A keyboard, on which somebody types, and a dock. Returns the drivers that the kernel tried."""
        trials = Trials.begin(self.machine)
        self.machine.plug(CATALOG["keyboard"], port="1")
        self.page.tell("plugged", f"{CATALOG['keyboard'].summary}, at 1-1, on which somebody types")
        for _ in range(20):
            self.machine.qmp.execute("send-key", keys=[{"type": "qcode", "data": "a"}])
        self.machine.plug(CATALOG["dock"])
        self.page.tell("", f"{CATALOG['dock'].summary}, at 3-1")
        self.check_record("keyboard", self.probe.judged_input("Keyboard", NO_WHITELIST_RULE), False, NO_WHITELIST_RULE)
        self.check_record("dock", self.probe.judged("3-1", NO_WHITELIST_RULE), False, NO_WHITELIST_RULE)
        self.machine.wait_until(lambda: not self.probe.functions("1-1") | self.probe.functions("3-1"),
                                what="the keyboard and the dock off")
        return {driver for driver, _ in trials.tried()}

    def read_meter(self):
        """What `vusctl exposure` says, for people and for this story."""
        self.page.tell("meter", self.machine.shell("vusctl exposure"))
        return json.loads(self.machine.shell("vusctl exposure --json"))

    def nothing_appears(self):
        self.page.scene("11. A refused keyboard and a refused dock: nothing of them was ever there")
        for name in ("keyboard", "disk"):
            self.machine.unplug(name)
        self.set_policy(ONLY_STORAGE)
        before = self.nodes()
        tried = self.plug_what_is_refused()
        self.page.tell("kernel", f"drivers tried since: {', '.join(sorted(tried)) or 'none'}")
        self.page.expect("drivers tried", tried, set())
        appeared = self.nodes() - before
        self.page.tell("appeared", ", ".join(sorted(appeared)) or "nothing: what is typed reaches nobody")
        self.page.expect("what appeared", appeared, set())
        measured = self.read_meter()
        self.page.expect("exposure of all that was refused in this story",
                         (measured["exposedMs"], measured["stillOn"], measured["notMeasured"]["refused"]), (0, 0, 0))
        self.page.expect("refusals measured", measured["refused"] >= 2, True)

    def nodes(self):
        """What programs use devices by; but the dock's own end of its network is this kernel's, too."""
        listing = ("cd /dev; ls -d input/event* hidraw* ttyACM* sd* 2>/dev/null; for net in /sys/class/net/*; do "
                   "case $(readlink -f $net) in */gadget*) ;; *) echo $net;; esac; done")
        return set(self.machine.run(listing)[1].split())

    def old_way(self):
        """On a machine of its own."""
        self.page.scene("12. The same without the gate (--gate=off): both work until they are refused")
        self.machine.wait_until("vusctl list", what="the service")
        self.set_policy(ONLY_STORAGE)
        tried = self.plug_what_is_refused()
        self.page.tell("kernel", f"drivers tried since: {', '.join(sorted(tried))}")
        self.page.expect("drivers tried", tried >= {"usbhid", "hid-generic", "cdc_ether", "cdc_acm", "usb-storage"}, True)
        self.machine.wait_until("vusctl exposure --json | grep '\"refused\":2,' | grep -q '\"stillOn\":0'",
                                what="the last line of the meter")
        measured = self.read_meter()
        self.page.expect("refused", measured["refused"], 2)
        self.page.expect("exposed", measured["exposedMs"] > 0, True)

    def tell_all(self):
        for scene in (self.start, self.default_policy, self.whitelist, self.one_by_one, self.blacklist,
                      self.broken_policy, self.undock_by_properties, self.undock_by_controller, self.crash,
                      self.workbench, self.nothing_appears):
            scene()


def parse_arguments():
    parser = argparse.ArgumentParser(
        prog="./run", description="Shows the daemon at its work on real USB devices in the virtual device.",
        epilog="Exit status: 0 if every verdict and every state of sysfs was the expected one.")
    parser.add_argument("what", nargs="?", default="story", choices=["story", "shell"],
                        help="story (the default), or shell: a prompt in the device, with plug and unplug")
    return parser.parse_args()


def run_story():
    page = Page(sys.stdout, sys.stdout.isatty())
    start = time.monotonic()
    with Machine() as machine:
        try:
            Story(machine, page).tell_all()
            # On a machine that has had no gate: one would hold what comes after it, too.
            with Machine(reporter=NO_GATE) as other:
                machine = other
                Story(machine, page).old_way()
        except MachineError as error:
            page.wrong += 1
            page.tell("WRONG", str(error), "1;31")
            page.tell("log", machine.run("tail -n 5 /data/log/vusd.log /data/log/vus_hotplug.log; devices")[1])
    print(f"\n{page.checks} checks, {page.wrong} wrong, {time.monotonic() - start:.0f} s")
    return 0 if page.wrong == 0 else 1


if __name__ == "__main__":
    try:
        sys.exit(shell.run() if parse_arguments().what == "shell" else run_story())
    except MachineError as error:
        sys.exit(f"error: {error}")
    except KeyboardInterrupt:
        sys.exit(130)
