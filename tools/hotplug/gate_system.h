// SPDX-License-Identifier: Apache-2.0
//
// GateSystem: what a gate asks of the kernel. The kernel's own is sysfs_gate.h's; tests have one
// that does as it says.
//
// Devices are named as in sysfs. What is written goes by the device's number, too: nothing is done
// to a device that has come to the same port meanwhile. Every method but those of the buses may
// wait for the device. Thread-safe.

#pragma once

#include <stdint.h>

#include <optional>
#include <string>
#include <vector>

#include "tools/hotplug/subject.h"
#include "tools/hotplug/usb_entry.h"

namespace android::vus::hotplug {

// What a device says of itself, and that it cannot change: a DeviceInfo without interfaces.
using Identity = DeviceInfo;

// The kernel's own driver for devices.
inline constexpr char kDeviceDriver[] = "usb";

class GateSystem {
  public:
    virtual ~GateSystem() = default;

    // A bus: whether the kernel looks for drivers for whatever comes. False, with errno telling
    // why, if that cannot be said.
    virtual bool set_autoprobe(const char* file, bool on) = 0;
    // A root hub: whether the interfaces of what comes to its bus are on.
    virtual bool set_interface_default(const std::string& root_hub, bool on) = 0;

    virtual std::vector<std::string> root_hubs() = 0;
    virtual bool is_there(const std::string& root_hub) = 0;
    virtual std::vector<Subject> usb_devices() = 0;
    virtual std::vector<std::string> hid_devices() = 0;

    // USB: devices and interfaces. The driver that one has, empty if it has none; a look for one,
    // false if the kernel could not be asked for it; a try of one. The kernel's own for devices
    // configures what it is bound to.
    virtual std::string driver_of(const std::string& entry) = 0;
    bool has_driver(const std::string& entry) { return !driver_of(entry).empty(); }
    virtual bool probe(const std::string& entry) = 0;
    // Not tried, or it cannot be told what came of it.
    enum class Bound { kYes, kNo, kNoSuchDriver, kNotTried };
    virtual Bound bind(const std::string& driver, const std::string& entry) = 0;

    // Takes a driver for whole devices from one that has it.
    virtual void unbind(const std::string& driver, const Subject& device) = 0;

    // Nothing if the device has gone, if another one is there, or if it cannot be read.
    virtual std::optional<Identity> identity(const Subject& device) = 0;
    // Another one for each device that comes, were it at the same port, with the same number. 0 if
    // it has gone; nothing if that cannot be told.
    virtual std::optional<uint64_t> incarnation(const Subject& device) = 0;
    // None if it has gone; nothing if they cannot be read.
    virtual std::optional<std::vector<UsbInterface>> interfaces(const Subject& device) = 0;
    // An interface's class, as interfaces() tells it; nothing if it has gone.
    virtual std::optional<int32_t> class_of(const std::string& interface) = 0;
    // Only of the device that is meant: false if another one is there. 0 means whichever is.
    virtual bool authorize(const Subject& device, uint64_t incarnation,
                           const std::string& interface, bool on) = 0;
    // A root hub's own interface, which is no part of a device that has come.
    virtual void authorize_root(const std::string& root_hub, const std::string& interface) = 0;
    // Whether one that is configured gives a hub's descriptor; nothing if it could not be asked.
    virtual std::optional<bool> tells_hub(const Subject& device) = 0;
    // Of an interface that is on and has no driver.
    virtual std::optional<std::vector<uint8_t>> report_descriptor(
            const Subject& device, const UsbInterface& interface) = 0;

    // HID devices.
    virtual bool hid_has_driver(const std::string& hid_device) = 0;
    virtual bool probe_hid(const std::string& hid_device) = 0;
    virtual std::string hid_label(const std::string& hid_device) = 0;
    // Of one that has a driver. Empty if it cannot be had.
    virtual std::vector<uint8_t> hid_report_descriptor(const std::string& hid_device) = 0;

    // Input devices: whether one came of a USB or a HID device, or may have; those that are
    // silenced.
    virtual bool is_of_a_bus(const std::string& input) = 0;
    virtual std::vector<std::string> silent_inputs() = 0;
};

}  // namespace android::vus::hotplug
