// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/sysfs_switches.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <utility>

#include "tools/hotplug/sysfs_paths.h"

namespace android::vus::hotplug {

namespace {

using Presence = DeviceDirectory::Presence;

constexpr char kAuthorized[] = "authorized";

}  // namespace

bool SysfsSwitches::close_interfaces(const Subject& device) {
    const DeviceDirectory directory(device);
    const auto interfaces = read_interfaces(directory.fd(), device.name);
    const Presence presence = presence_in(directory, device);
    if (presence != Presence::kThere) return presence == Presence::kGone;
    if (interfaces && is_hub(*interfaces)) return true;
    const auto open = to_be_switched(device, directory, interfaces, true);
    if (!open) return false;
    bool all = true;
    for (const std::string& name : *open) {
        // Everything behind it would go as well, for what may be a hub and nothing else.
        if (!interfaces && serves_hub(directory.fd(), name)) {
            all = false;
            continue;
        }
        const std::string path = name + "/" + kAuthorized;
        if (!directory.write(path, '0')) all &= !complain(path);
    }
    return all;
}

DeviceDirectory::Presence SysfsSwitches::presence_in(const DeviceDirectory& directory,
                                                     const Subject& device) {
    const Presence presence = directory.presence();
    if (presence == Presence::kUnknown) complain(device.name);
    return presence;
}

// Those that are on, or off; all of them, if that cannot be told. Nothing if they cannot be listed.
std::optional<std::vector<std::string>> SysfsSwitches::to_be_switched(
        const Subject& device, const DeviceDirectory& directory,
        const std::optional<std::vector<UsbInterface>>& interfaces, bool are_on) {
    if (!interfaces) {
        auto names = interface_names(directory.fd(), device.name);
        if (!names) complain(device.name);
        return names;
    }
    std::vector<std::string> names;
    for (const UsbInterface& interface : *interfaces) {
        if (interface.authorized == are_on) names.push_back(interface.name);
    }
    return names;
}

// All of them before any driver is looked for: one that serves two needs both.
bool SysfsSwitches::open_interfaces(const Subject& device) {
    const DeviceDirectory directory(device);
    const Presence presence = presence_in(directory, device);
    if (presence != Presence::kThere) return presence == Presence::kGone;
    const auto interfaces = read_interfaces(directory.fd(), device.name);
    const auto closed = to_be_switched(device, directory, interfaces, false);
    if (!closed) return false;
    bool all = true;
    std::vector<std::string> opened;
    for (const std::string& name : *closed) {
        const std::string path = name + "/" + kAuthorized;
        if (directory.write(path, '1')) {
            opened.push_back(name);
        } else {
            all &= !complain(path);
        }
    }
    for (const std::string& interface : opened) {
        if (write_attribute(kUsbProbeFile, interface) || !complain(kUsbProbeFile)) continue;
        // It is on, and nobody would look at it again.
        all = false;
        directory.write(interface + "/" + kAuthorized, '0');
    }
    return all;
}

bool SysfsSwitches::close_device(const Subject& device) {
    return set_device(device, '0');
}

bool SysfsSwitches::open_device(const Subject& device) {
    return set_device(device, '1');
}

bool SysfsSwitches::set_device(const Subject& device, char value) {
    const DeviceDirectory directory(device);
    const Presence presence = presence_in(directory, device);
    if (presence != Presence::kThere) return presence == Presence::kGone;
    return directory.write(kAuthorized, value) || !complain(device.name + "/" + kAuthorized);
}

bool SysfsSwitches::hush_input(const std::string& input) {
    return inhibit(input, '1');
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
    // Kernels before 5.11 have no such file: nothing is silent there.
    const bool has_none = errno == ENOENT;
    if (access(directory.c_str(), F_OK) != 0 && has_gone(errno)) return true;
    complain_("cannot switch " + path);
    return has_none;
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
bool SysfsSwitches::open_held(const Subject& /*usb_device*/, const std::string& /*what*/) {
    return true;
}

bool SysfsSwitches::complain(const std::string& path) {
    const int error = errno;
    if (has_gone(error)) return false;
    complain_("cannot switch " + path + ": " + strerror(error));
    return true;
}

}  // namespace android::vus::hotplug
