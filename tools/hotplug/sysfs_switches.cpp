// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/sysfs_switches.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <vector>

#include "tools/hotplug/device_directory.h"
#include "tools/hotplug/sysfs_paths.h"
#include "tools/hotplug/usb_entry.h"

namespace android::vus::hotplug {

namespace {

constexpr char kAuthorized[] = "authorized";

}  // namespace

void SysfsSwitches::close_interfaces(const Subject& device) {
    const DeviceDirectory directory(device);
    const std::vector<UsbInterface> interfaces = read_interfaces(directory.fd(), device.name);
    if (!directory.is_there() || is_hub(interfaces)) return;
    for (const UsbInterface& interface : interfaces) {
        if (!interface.authorized) continue;
        const std::string path = interface.name + "/" + kAuthorized;
        if (!directory.write(path, '0')) complain(path);
    }
}

// All of them before any driver is looked for: one that serves two needs both.
void SysfsSwitches::open_interfaces(const Subject& device) {
    const DeviceDirectory directory(device);
    if (!directory.is_there()) return;
    std::vector<std::string> opened;
    for (const UsbInterface& interface : read_interfaces(directory.fd(), device.name)) {
        if (interface.authorized) continue;
        if (directory.write(interface.name + "/" + kAuthorized, '1')) {
            opened.push_back(interface.name);
        } else {
            complain(interface.name + "/" + kAuthorized);
        }
    }
    for (const std::string& interface : opened) {
        if (!write_attribute(kUsbProbeFile, interface)) complain(kUsbProbeFile);
    }
}

void SysfsSwitches::close_device(const Subject& device) {
    set_device(device, '0');
}

void SysfsSwitches::open_device(const Subject& device) {
    set_device(device, '1');
}

void SysfsSwitches::set_device(const Subject& device, char value) {
    const DeviceDirectory directory(device);
    if (directory.is_there() && !directory.write(kAuthorized, value)) {
        complain(device.name + "/" + kAuthorized);
    }
}

void SysfsSwitches::hush_input(const std::string& input) {
    inhibit(input, '1');
}

bool SysfsSwitches::unhush_input(const std::string& input) {
    return inhibit(input, '0');
}

// False if there is such a switch, and it cannot be set.
bool SysfsSwitches::inhibit(const std::string& input, char value) {
    const std::string directory = std::string(kInputClassDir) + "/" + input;
    const std::string path = directory + "/inhibited";
    if (write_attribute(path, {value})) {
        if (silenced_) silenced_(input, value == '1');
        return true;
    }
    if (access(directory.c_str(), F_OK) != 0) return true;
    complain_("cannot switch " + path);
    // Kernels before 5.11 have no such file.
    return access(path.c_str(), F_OK) != 0;
}

bool SysfsSwitches::unbind_hid(const std::string& hid_device) {
    const std::string path = std::string(kHidDevicesDir) + "/" + hid_device + "/driver/unbind";
    if (write_attribute(path, hid_device)) return true;
    complain(path);
    return false;
}

void SysfsSwitches::probe_hid(const std::string& hid_device) {
    if (!write_attribute(kHidProbeFile, hid_device)) complain(kHidProbeFile);
}

// Only a gate holds anything back.
void SysfsSwitches::open_held(const Subject& /*usb_device*/, const std::string& /*what*/) {}

void SysfsSwitches::complain(const std::string& path) {
    const int error = errno;
    if (!has_gone(error)) complain_("cannot switch " + path + ": " + strerror(error));
}

}  // namespace android::vus::hotplug
