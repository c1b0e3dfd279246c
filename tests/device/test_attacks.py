# SPDX-License-Identifier: Apache-2.0
"""Every attack under every set-up: what comes of it is what docs/attacks.md says. For how long a
driver had what is refused is the kernel's word."""

import inspect

import pytest

import attack_table
import attacking
from attacking import DOCUMENTED, EXPOSED, FAIL_CLOSED, HELD, OUTCOMES, SETUPS
from conftest import Device
from test_gate import refused, refused_input
from test_reporter import stop_daemon
from vdev import RedirDevice, prepared_machine, trials
from vdev.probe import SYSFS
from vdev.trials import USBFS, Trials, together_ms

OVER_SECONDS = 60
# Of 200 ms. A judgement takes more.
IDLE_NS = 50_000_000
# usbhid by itself gives nothing to anybody: what types, and what is read, is a HID driver's above it.
CARRIERS = {"usbhid"}


class Scene(Device):
    """The virtual device of an attack."""

    def __init__(self, machine, setup):
        super().__init__(machine)
        self.setup = setup
        self.trials = Trials(machine)

    def plug_described(self, description, port, name=None):
        return self.machine.plug(RedirDevice("described", "", lambda: description), name or f"at-{port}", port)

    def node(self, entry):
        numbers = self.machine.shell(f"cat {SYSFS}/{entry}/busnum {SYSFS}/{entry}/devnum").split()
        return "/dev/bus/usb/" + "/".join(f"{int(number):03}" for number in numbers)

    def usbfs(self, entry, *steps):
        """What a program that has the device's node is answered: {step: answer}."""
        text = self.machine.run(f"vus_usbfs {self.node(entry)} {' '.join(steps)}")[1]
        return dict(line.split(" ", 1) for line in text.splitlines())

    def refused(self, entry):
        refused(self, entry)

    def refused_input(self, name):
        refused_input(self, name)

    def stop_daemon(self):
        stop_daemon(self)

    def wait_until_idle(self):
        """Until both programs have done little for a fifth of a second: a reporter without a daemon
        looks for one ten times a second."""
        times = ("cat /proc/$(cat /run/vusd.pid)/task/*/schedstat "
                 "/proc/$(cat /run/vus_hotplug.pid)/task/*/schedstat 2>/dev/null")

        def worked_ns():
            halves = self.machine.run(f"{times}; echo later; usleep 200000; {times}")[1].split("later")
            before, after = (sum(int(line.split()[0]) for line in half.splitlines() if line) for half in halves)
            return after - before
        self.machine.wait_until(lambda: worked_ns() < IDLE_NS, what="the daemon and the reporter idle")


def prepare(setup):
    def prepared(machine):
        Device(machine).set_policy(attacking.RULES)
        # When its reporter is killed, nobody starts another.
        machine.shell("touch /run/vus_hotplug.hold")
        Scene(machine, setup).wait_until_idle()
        Trials.begin(machine)
    return prepared


@pytest.fixture
def scene(request):
    setup = request.param
    what = "\n".join([attacking.RULES, *trials.PROBES, inspect.getsource(prepare)])
    with prepared_machine(setup.options, prepare(setup), what) as machine:
        yield Scene(machine, setup)


class Result:
    """What came of an attack, as the kernel has it."""

    def __init__(self, attack, scene):
        unwanted = [trial for trial in scene.trials.all() if attack.is_unwanted(trial)]
        self.trials = [trial for trial in unwanted if attack.counts_usbfs or trial.driver != USBFS]
        served = [trial for trial in self.trials if trial.driver not in CARRIERS]
        self.is_open = any(trial.end is None for trial in served) or attack.succeeds(scene)
        self.ms = together_ms(served)

    def outcome(self):
        if self.is_open:
            return DOCUMENTED
        return EXPOSED if self.trials else HELD


def is_over(attack, scene):
    scene.wait_until_idle()
    return not Result(attack, scene).is_open


@pytest.fixture(scope="session")
def measured(request):
    times = attack_table.Measured(keep=request.config.getoption("--write-table"))
    yield times
    if times.keep:
        attack_table.update()


def pytest_generate_tests(metafunc):
    """Every attack under every set-up makes the table. Failing closed differs from not doing so only
    where an attack says so: the others are tried that way when the table is made."""
    whole = metafunc.config.getoption("--write-table")
    cases = [pytest.param(setup, attack, id=f"{attack.name()}-under-{setup.name}")
             for attack in attacking.attacks() for setup in SETUPS
             if whole or setup is not FAIL_CLOSED or setup in attack.expected]
    metafunc.parametrize("scene, attack", cases, indirect=["scene"])


def test_attack(scene, attack, record_property, measured):
    expected = attack.outcome(scene.setup)
    one = attack()
    one.run(scene)
    scene.wait_until_idle()
    if expected in (HELD, EXPOSED):
        scene.machine.wait_until(lambda: is_over(one, scene), seconds=OVER_SECONDS, what="an end of what is exposed")
    result = Result(one, scene)
    seen = result.outcome()
    record_property("outcome", seen)
    record_property("exposed_ms", round(result.ms))
    wanted = DOCUMENTED if OUTCOMES.index(expected) > OUTCOMES.index(DOCUMENTED) else expected
    assert seen == wanted, "\n".join(["the kernel says:"] + [str(trial) for trial in result.trials])
    if seen == EXPOSED:
        assert result.ms <= measured.at_most_ms(attack, scene.setup)
    measured.add(attack, scene.setup, result.ms)
