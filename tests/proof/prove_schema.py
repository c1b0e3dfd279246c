#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Holds share/usb_device_config.xsd against the daemon's own reading, by xmllint.

usage: prove_schema.py PROGRAM [POLICIES [SEED]]

PROGRAM is analyser_answers. Looked at are every policy of the documents, random ones with mistakes
in them, and one for each thing that the schema says it cannot say.
"""

import json
import pathlib
import random
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
SCHEMA = ROOT / "share" / "usb_device_config.xsd"
# Accepted by the daemon, and not by the schema.
STRICTER = {"ignored-element", "ignored-product", "misnamed-product"}
# (policy, accepted by the daemon, valid by the schema)
EXCEPTIONS = [
    ("<usbconfig mode='default'><anything/></usbconfig>", True, False),
    ("<usbconfig mode='whitelist' xmlns='urn:x'/>", True, False),
    ("<usbconfig mode='whitelist'/><usbconfig/>", True, False),
    ("<usbconfig mode='whitelist'><class>USB_CLASS_<!-- -->AUDIO</class></usbconfig>", False, True),
    ("<usbconfig mode='whitelist'><class>USB_CLASS_<![CDATA[AUDIO]]></class></usbconfig>", False,
     True),
]

CLASSES = ["USB_CLASS_AUDIO", "USB_CLASS_MASS_STORAGE", "AINPUT_SOURCE_KEYBOARD",
           "AINPUT_SOURCE_JOYSTICK", "USB_CLASS_PHYSICA", "<![CDATA[USB_CLASS_VIDEO]]>",
           "&#85;SB_CLASS_COMM", "<!-- -->USB_CLASS_PRINTER"]
NO_CLASSES = ["", " ", "USB_CLASS_HID", "USB_CLASS_HUB", "USB_CLASS_PHYSICAL", "8",
              "usb_class_audio", " USB_CLASS_AUDIO", "USB_CLASS_AUDIO\n"]
NUMBERS = ["0", "1", "0046", "65535", "65536", "999999999", "1000000000", "2147483647",
           "00002147483647", "2099999999", "2139999999", "2146999999"]
NO_NUMBERS = ["", " ", "-1", "+1", "1 ", "\n1", "0x1", "1,2", "046d", "2147483648", "2147483650",
              "2147483700", "2147484000", "2148000000", "2200000000", "3000000000", "99999999999"]
MODES = ["whitelist", "blacklist", "default"]
NO_MODES = ["", "Whitelist", " whitelist", "whitelist "]
JUNK = ["", "", "", "text\n", "<!-- comment -->", " ", "<![CDATA[text]]>"]


class Writer:
    """Writes a random policy, with mistakes here and there."""

    def __init__(self, dice):
        self.dice = dice
        # Most policies are all right but for one thing, if at all.
        self.wrong = dice.choice([0, 0, 0.1, 0.3])

    def pick(self, good, bad):
        return self.dice.choice(bad if self.dice.random() < self.wrong / 2 else good)

    def attributes(self):
        return self.dice.choice(["", "", "", " note='x'", " pid='1'", " xml:lang='en'"])

    def product(self):
        name = self.pick(["pid"], ["PID", "note", "class"])
        return f"<{name}{self.attributes()}>{self.pick(NUMBERS, NO_NUMBERS)}</{name}>"

    def vendor(self):
        number = f" vendorid='{self.pick(NUMBERS, NO_NUMBERS)}'"
        attribute = self.pick([number], ["", " vendorId='1'"])
        inside = "".join(self.product() + self.dice.choice(JUNK)
                         for _ in range(self.dice.randrange(4)))
        return f"<vid{attribute}{self.attributes()}>{inside}</vid>"

    def klass(self):
        inside = self.pick(CLASSES, NO_CLASSES)
        return f"<class{self.attributes()}>{inside}</class>"

    def rule(self):
        other = "<pid>1</pid>" if self.dice.random() < 0.5 else "<note/>"
        return self.pick([self.klass(), self.vendor()], [other, "<Class>USB_CLASS_AUDIO</Class>"])

    def policy(self):
        mode = f" mode='{self.pick(MODES, NO_MODES)}'"
        root = self.pick(["usbconfig"], ["USBCONFIG", "config"])
        rules = "".join(self.dice.choice(JUNK) + self.rule()
                        for _ in range(self.dice.randrange(6)))
        return f"<{root}{self.pick([mode], [''])}{self.attributes()}>{rules}</{root}>"


def policies_of_documents():
    for document in [*ROOT.glob("docs/*.md"), *ROOT.glob("docs/lint/*.md")]:
        for policy in re.findall(r"^```xml.*?\n(.*?)^```", document.read_text(), re.M | re.S):
            if "<usbconfig" in policy or "<USBCONFIG" in policy:
                yield policy


def asked_daemon(program, texts):
    lines = "".join(json.dumps({"text": text}) + "\n" for text in texts)
    output = subprocess.run([program], input=lines, text=True, check=True,
                            stdout=subprocess.PIPE).stdout
    return [json.loads(line) for line in output.splitlines()]


def asked_xmllint(texts):
    """Whether each text is valid by the schema."""
    with tempfile.TemporaryDirectory() as directory:
        paths = []
        for at, text in enumerate(texts):
            paths.append(pathlib.Path(directory, f"{at}.xml"))
            paths[-1].write_text(text)
        valid = set()
        for at in range(0, len(paths), 500):
            result = subprocess.run(
                ["xmllint", "--noout", "--schema", SCHEMA, *paths[at:at + 500]],
                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=False)
            valid.update(re.findall(r"^(.*) validates$", result.stderr, re.M))
        return [str(path) in valid for path in paths]


def main(arguments):
    if not 1 <= len(arguments) <= 3:
        print(__doc__, file=sys.stderr)
        return 2
    count = int(arguments[1]) if len(arguments) > 1 else 5000
    seed = int(arguments[2]) if len(arguments) > 2 else 20261121
    documents = list(policies_of_documents())
    assert len(documents) > 50, "the documents' policies were not found"
    texts = documents + [Writer(random.Random(f"{seed}.{at}")).policy() for at in range(count)]
    wrong = 0
    both = {True: 0, False: 0}
    for text, answer, valid in zip(texts, asked_daemon(arguments[0], texts), asked_xmllint(texts)):
        in_default = re.search(r"mode=.default", text) and answer["accepted"]
        expected = answer["accepted"] and not STRICTER & set(answer["findings"])
        both[valid] += 1
        # Below the root of a policy in the mode "default" the daemon reads nothing.
        if valid != expected and not (in_default and not valid):
            wrong += 1
            print(f"valid: {valid}, by the daemon: {answer}\n{text}")
    cases = [text for text, _, _ in EXCEPTIONS]
    for (text, accepted, valid), answer, is_valid in zip(
            EXCEPTIONS, asked_daemon(arguments[0], cases), asked_xmllint(cases)):
        if (answer["accepted"], is_valid) != (accepted, valid):
            wrong += 1
            print(f"no exception: {text}: {answer}, valid: {is_valid}")
    print(f"{len(texts)} policies, seed {seed}: {both[True]} valid, {both[False]} not; "
          f"{len(cases)} exceptions; {wrong} wrong")
    return 1 if wrong or min(both.values()) < count / 10 else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
