#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Proves the analyser's answers about random policies with z3, over all possible devices.

usage: prove_analyser.py PROGRAM [PAIRS [SEED]]

PROGRAM is analyser_answers. The rules are stated here once more, as formulas over a device of which
nothing is known, and share nothing with the program. Of each pair of policies it is proven that
  - no device is judged differently that no difference covers, and each difference's device is;
  - without the dead rules of a policy nothing changes, and without one rule more something does;
  - an alias is within reach exactly if an admitted device fits it.
"""

import json
import multiprocessing
import random
import subprocess
import sys
import time

import z3

USB_CLASSES = {
    "USB_CLASS_AUDIO": 1, "USB_CLASS_COMM": 2, "USB_CLASS_PHYSICA": 5, "USB_CLASS_STILL_IMAGE": 6,
    "USB_CLASS_PRINTER": 7, "USB_CLASS_MASS_STORAGE": 8, "USB_CLASS_CDC_DATA": 10,
    "USB_CLASS_CSCID": 11, "USB_CLASS_CONTENT_SEC": 13, "USB_CLASS_VIDEO": 14,
    "USB_CLASS_WIRELESS_CONTROLLER": 224,
}
SOURCES = {
    "AINPUT_SOURCE_KEYBOARD": 1 << 8, "AINPUT_SOURCE_DPAD": 1 << 9,
    "AINPUT_SOURCE_GAMEPAD": 1 << 10, "AINPUT_SOURCE_TOUCHSCREEN": 1 << 12, "AINPUT_SOURCE_MOUSE": 1 << 13,
    "AINPUT_SOURCE_STYLUS": 1 << 14, "AINPUT_SOURCE_TRACKBALL": 1 << 16,
    "AINPUT_SOURCE_MOUSE_RELATIVE": 1 << 17, "AINPUT_SOURCE_TOUCHPAD": 1 << 20,
    "AINPUT_SOURCE_TOUCH_NAVIGATION": 1 << 21, "AINPUT_SOURCE_ROTARY_ENCODER": 1 << 22,
    "AINPUT_SOURCE_JOYSTICK": 1 << 24,
}
CODES = {**USB_CLASSES, **SOURCES}
HID = 3
RESTRICTED = [0, HID, 9, 239, 254, 255]
UNNAMED = 4  # for all classes without a name: no rule tells them apart
LAST_ID = 65535
VENDORS = [0, 1, 2, 3, 1133, 65534, 65535, 65536, 70000]
PRODUCTS = [0, 1, 2, 65535, 65536]
UNLISTED, CLASS, VENDOR, OTHER_PRODUCTS, PRODUCT, COMBINATION = range(6)


class Rules:
    """A policy: its mode, and (line, class or None, vendor, product or None) a rule."""

    def __init__(self, mode, rules):
        self.mode = mode
        self.rules = rules

    @staticmethod
    def at_random(dice):
        rules = []
        for line in range(2, 2 + dice.randrange(9)):
            if dice.random() < 0.35:
                rules.append((line, dice.choice(list(CODES)), None, None))
            else:
                product = dice.choice(PRODUCTS) if dice.random() < 0.7 else None
                rules.append((line, None, dice.choice(VENDORS), product))
        return Rules(dice.choice(["whitelist", "whitelist", "blacklist", "default"]), rules)

    def neighbour(self, dice):
        other = Rules.at_random(dice)
        mixed = [rule for rule in self.rules + other.rules if dice.random() < 0.7]
        rules = [(line, *rule[1:]) for line, rule in enumerate(mixed, start=2)]
        return Rules(self.mode if dice.random() < 0.8 else other.mode, rules)

    def text(self):
        lines = [f'<usbconfig mode="{self.mode}">']
        for _, name, vendor, product in self.rules:
            if name:
                lines.append(f"<class>{name}</class>")
            elif product is None:
                lines.append(f'<vid vendorid="{vendor}"/>')
            else:
                lines.append(f'<vid vendorid="{vendor}"><pid>{product}</pid></vid>')
        return "\n".join(lines + ["</usbconfig>\n"])

    def in_force(self):
        return [] if self.mode == "default" else self.rules

    def without(self, lines):
        return Rules(self.mode, [rule for rule in self.in_force() if rule[0] not in lines])

    def codes(self):
        return {CODES[name] for _, name, _, _ in self.in_force() if name}


def judge(policy, device):
    """Whether a device that is known is admitted."""
    if policy.mode == "default":
        return True
    codes = policy.codes()
    if device["deviceType"] == 1:
        has = {code for code in SOURCES.values() if device["deviceClass"] & code}
    else:
        assert set(device["interfaceClassList"]) - {HID}, "not judged at all"
        has = set(device["interfaceClassList"]) - set(RESTRICTED)
    vendor, product = device["vendorId"], device["productId"]
    assert 0 <= vendor <= LAST_ID and 0 <= product <= LAST_ID
    ids = [(v, p) for _, name, v, p in policy.in_force() if not name]
    listed = any(v == vendor for v, _ in ids)
    whole = listed and any(p is None and v >= vendor for v, p in ids)
    matches = bool(has and has <= codes) or whole or (vendor, product) in ids
    return matches == (policy.mode == "whitelist")


def fits(alias, device):
    return (device["deviceType"] == 0 and alias["vendor"] in (None, device["vendorId"])
            and alias["product"] in (None, device["productId"])
            and (alias["class"] is None or alias["class"] in device["interfaceClassList"]))


class Device:
    """A device of which nothing is known: its ids, and a bit for each class and source."""

    BITS = {code: 1 << at for at, code in enumerate([*USB_CLASSES.values(), *RESTRICTED, UNNAMED])}

    def __init__(self):
        self.is_input = z3.Bool("input")
        self.vendor, self.product = z3.BitVecs("vendor product", 18)
        self.classes, self.sources = z3.BitVecs("classes sources", 26)
        self.counting = self.mask(code for code in self.BITS if code not in RESTRICTED)
        beside_hid = self.mask(code for code in self.BITS if code != HID)
        self.possible = z3.And(
            z3.ULE(self.vendor, LAST_ID), z3.ULE(self.product, LAST_ID),
            z3.Or(self.is_input, self.classes & beside_hid != 0))

    def mask(self, codes):
        return sum(self.BITS[code] for code in codes)

    @staticmethod
    def listed_all(bits, counting, listed):
        return z3.And(bits & (counting & listed) != 0, bits & (counting & ~listed) == 0)

    def matches(self, policy):
        codes = policy.codes()
        usb = self.mask(code for code in codes if code in self.BITS)
        sources = sum(code for code in codes if code not in self.BITS)
        by_class = z3.If(self.is_input,
                         self.listed_all(self.sources, sum(SOURCES.values()), sources),
                         self.listed_all(self.classes, self.counting, usb))
        ids = [(vendor, product) for _, name, vendor, product in policy.in_force() if not name]
        if not ids:
            return by_class
        listed = z3.Or(*[self.vendor == vendor for vendor in {vendor for vendor, _ in ids}])
        a_higher_is_whole = z3.Or(*[z3.ULE(self.vendor, vendor) for vendor, product in ids
                                    if product is None])
        pair = z3.Or(*[z3.And(self.vendor == vendor, self.product == product)
                       for vendor, product in ids if product is not None])
        return z3.Or(by_class, z3.And(listed, a_higher_is_whole), pair)

    def admitted(self, policy):
        if policy.mode == "default":
            return z3.BoolVal(True)
        matches = self.matches(policy)
        return matches if policy.mode == "whitelist" else z3.Not(matches)

    def covered(self, difference):
        """By what a difference speaks of."""
        device = difference["device"]
        subject, code = difference["subject"], difference["code"]
        if subject == CLASS:
            if code in self.BITS:
                return z3.And(z3.Not(self.is_input), self.classes & self.BITS[code] != 0)
            return z3.And(self.is_input, self.sources & code != 0)
        if subject in (VENDOR, OTHER_PRODUCTS):
            return self.vendor == device["vendorId"]
        if subject == PRODUCT:
            return z3.And(self.vendor == device["vendorId"], self.product == device["productId"])
        return z3.BoolVal(True)

    def fits(self, alias):
        wanted = [z3.Not(self.is_input)]
        if alias["vendor"] is not None:
            wanted.append(self.vendor == alias["vendor"])
        if alias["product"] is not None:
            wanted.append(self.product == alias["product"])
        if alias["class"] is not None:
            wanted.append(self.classes & self.BITS[alias["class"]] != 0)
        return z3.And(*wanted)


class Prover:
    def __init__(self):
        self.device = Device()
        self.solver = z3.Solver()
        self.solver.add(self.device.possible)

    def exists(self, *claims):
        self.solver.push()
        self.solver.add(*claims)
        answer = self.solver.check()
        self.solver.pop()
        assert answer != z3.unknown
        return answer == z3.sat

    def prove_differences(self, before, after, differences):
        was, is_now = self.device.admitted(before), self.device.admitted(after)
        for admitted in (True, False):
            changed = z3.And(was != admitted, is_now == admitted)
            said = [each for each in differences if each["admitted"] == admitted]
            assert not self.exists(
                changed, *[z3.Not(self.device.covered(each)) for each in said]), "not covered"
            for each in said:
                assert judge(after, each["device"]) == admitted, ("wrong", each)
                assert judge(before, each["device"]) != admitted, ("wrong", each)

    def prove_dead(self, policy, dead, dice):
        rest = policy.without(dead)
        verdict = self.device.admitted(policy)
        if dead:
            assert not self.exists(verdict != self.device.admitted(rest)), "not dead"
        if rest.rules:
            line = dice.choice(rest.rules)[0]
            fewer = rest.without([line])
            assert self.exists(verdict != self.device.admitted(fewer)), ("dead, too", line)

    def prove_reach(self, policy, alias, reached):
        if reached is None:
            wanted = [self.device.admitted(policy), self.device.fits(alias)]
            assert not self.exists(*wanted), "within reach"
        else:
            assert judge(policy, reached) and fits(alias, reached), "not within reach"


def questions(seed, count):
    for index in range(count):
        dice = random.Random(f"{seed}.{index}")
        before = Rules.at_random(dice)
        after = before.neighbour(dice) if dice.random() < 0.5 else Rules.at_random(dice)
        alias = {"vendor": dice.choice([None, *VENDORS[:7]]),
                 "product": dice.choice([None, *PRODUCTS[:4]]),
                 "class": dice.choice([None, 1, 3, UNNAMED, 7, 8, 9, 255])}
        yield dice, before, after, alias


def prove(task):
    program, seed, count = task
    asked = list(questions(seed, count))
    lines = [json.dumps({"before": before.text(), "after": after.text(), "alias": alias})
             for _, before, after, alias in asked]
    output = subprocess.run([program], input="\n".join(lines) + "\n", text=True, check=True,
                            stdout=subprocess.PIPE).stdout
    answers = [json.loads(line) for line in output.splitlines()]
    assert len(answers) == count
    prover = Prover()
    found = {"differences": 0, "dead": 0, "reached": 0}
    for index, ((dice, before, after, alias), answer) in enumerate(zip(asked, answers)):
        try:
            prover.prove_differences(before, after, answer["differences"])
            prover.prove_dead(before, answer["dead"], dice)
            prover.prove_reach(before, alias, answer.get("reached"))
        except AssertionError as wrong:
            return f"seed {seed}.{index}: {wrong}\n{before.text()}{after.text()}{alias}\n{answer}"
        found["differences"] += len(answer["differences"])
        found["dead"] += len(answer["dead"])
        found["reached"] += "reached" in answer
    return found


def main(arguments):
    if not 1 <= len(arguments) <= 3:
        print(__doc__, file=sys.stderr)
        return 2
    program = arguments[0]
    pairs = int(arguments[1]) if len(arguments) > 1 else 10000
    seed = int(arguments[2]) if len(arguments) > 2 else 20261121
    start = time.monotonic()
    each = 250
    tasks = [(program, seed + at, min(each, pairs - at)) for at in range(0, pairs, each)]
    total = {}
    with multiprocessing.Pool() as pool:
        for result in pool.imap_unordered(prove, tasks):
            if isinstance(result, str):
                print(result)
                return 1
            total = {name: total.get(name, 0) + count for name, count in result.items()}
    print(f"{pairs} pairs from seed {seed}, by z3 {z3.get_version_string()}: "
          f"{total['differences']} differences, {total['dead']} dead rules, "
          f"{total['reached']} aliases within reach; {time.monotonic() - start:.0f} s")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
