# SPDX-License-Identifier: Apache-2.0
"""What the virtual device shows of itself: its USB interfaces and the daemon's records.

Everything is read through what the product has: sysfs, vusctl, the log of the hot-plug component.
"""

import json

SYSFS = "/sys/bus/usb/devices"
CONFIG_DIR = "/data/system/usbdeviceconfig"
POLICY = f"{CONFIG_DIR}/usb_device_config.xml"
BACKUP = f"{CONFIG_DIR}/usb_device_config_backup.xml"
STATUS = f"{CONFIG_DIR}/status.txt"
SOC = "/sys/devices/platform/soc"
USB, INPUT = 0, 1


class Interface:
    """One line of the guest's `devices`."""

    def __init__(self, line):
        words = line.split()
        self.entry, self.class_code, self.authorized = words[0], words[2], words[4]
        driver, *self.functions = line.split(" driver ", 1)[1].split(" ")
        self.driver = driver

    def __str__(self):
        return (f"{self.entry:<13}class {self.class_code}  authorized {self.authorized}  "
                f"{self.driver or '-':<12}{', '.join(self.functions)}").rstrip()


class Probe:
    def __init__(self, machine):
        self.machine = machine

    def interfaces(self, entry):
        lines = self.machine.shell(f"devices {entry}").splitlines()
        return [Interface(line) for line in lines if line.startswith("  ")]

    def functions(self, entry):
        """The names that the kernel gave to what is behind a device: sda, ttyACM0, usb0."""
        return {name for interface in self.interfaces(entry) for name in interface.functions}

    def authorized(self, entry):
        return [interface.authorized for interface in self.interfaces(entry)]

    def records(self):
        """The daemon's list; empty while there is no daemon."""
        status, text = self.machine.run("vusctl list --json 2>/dev/null")
        return json.loads(text) if status == 0 else []

    def device_id(self, entry):
        """None while there is no such device."""
        status, numbers = self.machine.run(f"cat {SYSFS}/{entry}/busnum {SYSFS}/{entry}/devnum")
        if status != 0:
            return None
        bus, device = map(int, numbers.split())
        return bus * 1000 + device

    def record(self, entry):
        wanted = self.device_id(entry)
        return next((record for record in self.records()
                     if record["deviceType"] == USB and record["deviceId"] == wanted), None)

    def input_record(self, name):
        return next((record for record in self.records()
                     if record["deviceType"] == INPUT and name in record["deviceName"]), None)

    def judged(self, entry, reason=None):
        """Waits for the device's record, or for one with that reason."""
        return self._wait(lambda: self.record(entry), reason, entry)

    def judged_input(self, name, reason=None):
        return self._wait(lambda: self.input_record(name), reason, name)

    def _wait(self, look, reason, what):
        def found():
            record = look()
            return record if record and reason in (None, record["reason"]) else None
        return self.machine.wait_until(found, what=f"a verdict on {what}")

    def answers(self, entry):
        """What the daemon answered the hot-plug component about an entry, oldest first."""
        log = self.machine.run(f"grep '^{entry} ' /data/log/vus_hotplug.log")[1]
        return [line.rsplit(" ", 1)[1] for line in log.splitlines() if line]

    def words(self, entry):
        """The same, each of them once: some time after a policy was put in force, everything that is
        attached is asked about again."""
        return set(self.answers(entry))

    def ends(self, service):
        """The exit statuses with which a service has ended, oldest first."""
        log = self.machine.run("cat /data/log/supervise.log 2>/dev/null")[1]
        return [int(line.rsplit(" ", 1)[1]) for line in log.splitlines() if line.startswith(service + " ")]

    def status(self):
        return self.machine.run(f"cat {STATUS}")[1]

    def set_policy(self, text):
        """Through vusctl; returns its exit status and what it printed."""
        self.machine.write("/tmp/policy.xml", text)
        return self.machine.run("vusctl policy set /tmp/policy.xml 2>&1")
