# SPDX-License-Identifier: Apache-2.0
"""The virtual device: the product's machine, emulated, and the USB devices to plug into it."""

from .catalog import CATALOG, Gadget, QemuDevice, RedirDevice
from .machine import GuestError, Machine, MachineError
from .probe import Probe

__all__ = ["CATALOG", "Gadget", "GuestError", "Machine", "MachineError", "Probe", "QemuDevice", "RedirDevice"]
