# SPDX-License-Identifier: Apache-2.0
"""Turns the source of QEMU's own device tree into the SoC's.

QEMU's PCIe host becomes /soc@0/ssusb@a600000, and the USB controller in slot 8 its child
dwc3@a600000, so that the root hubs' devspec reads as on the product. The high-speed
controller's nodes stand beside it; the board module gives them to the emulated one.
"""

import re
import sys

PCIE_NODE = re.compile(r"\n\tpcie@10000000 \{.*?\n\t\};\n", re.S)
# Slot 8, function 0, as PCI's address cells write it.
SLOT_8 = "0x4000 0x00 0x00 0x00 0x00"
SOC = """
\tsoc@0 {
\t\tcompatible = "simple-bus";
\t\t#address-cells = <2>;
\t\t#size-cells = <2>;
\t\tranges;
\t\thsusb@c200000 { dwc3@c200000 { }; };
\t\tssusb@a800000 { dwc3@a800000 { }; };
%s
\t};
"""


def soc_tree(source):
    pcie = PCIE_NODE.search(source)
    if not pcie:
        raise SystemExit("error: QEMU's device tree has no pcie@10000000 to make the SoC's controller of")
    controller = pcie.group(0).strip().replace("pcie@10000000", "ssusb@a600000", 1)
    controller = controller.removesuffix("};") + "\tdwc3@a600000 { reg = <%s>; };\n\t};" % SLOT_8
    rest = source.replace(pcie.group(0), "\n").rstrip().removesuffix("};")
    return rest + SOC % controller + "};\n"


if __name__ == "__main__":
    sys.stdout.write(soc_tree(sys.stdin.read()))
