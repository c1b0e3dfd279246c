# SPDX-License-Identifier: Apache-2.0
"""The virtual device: the product's machine, emulated, and the USB devices to plug into it."""

from .catalog import CATALOG, Gadget, QemuDevice, RedirDevice
from .machine import GATE, NO_GATE, GuestError, Machine, MachineError, NotInTime
from .probe import Probe
from .ready import prepared_machine, ready_machine, wait_for_gate, wait_for_service

__all__ = ["CATALOG", "GATE", "Gadget", "GuestError", "Machine", "MachineError", "NO_GATE", "NotInTime", "Probe",
           "QemuDevice", "RedirDevice", "prepared_machine", "ready_machine", "wait_for_gate", "wait_for_service"]
