// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/sysfs_gate.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "android/vus/insistently.h"
#include "android/vus/paths.h"
#include "tools/hotplug/device_directory.h"
#include "tools/hotplug/device_reader.h"
#include "tools/hotplug/names.h"
#include "tools/hotplug/sysfs_paths.h"
#include "tools/hotplug/usbfs.h"

namespace android::vus::hotplug {

namespace {

std::string in_usb(const std::string& entry) {
    return std::string(kUsbDevicesDir) + "/" + entry;
}

std::string in_hid(const std::string& entry) {
    return std::string(kHidDevicesDir) + "/" + entry;
}

bool entry_exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

// Nothing if that cannot be told.
std::optional<std::string> try_driver_of(const std::string& entry) {
    const std::string link = in_usb(entry) + "/driver";
    std::string driver;
    const int result = insistently([&] { return base::Readlink(link, &driver) ? 0 : -1; });
    if (result != 0) return has_gone(errno) ? std::make_optional(std::string()) : std::nullopt;
    return base::Basename(driver);
}

std::string switch_text(bool on) {
    return on ? "1" : "0";
}

}  // namespace

bool SysfsGate::set_autoprobe(const char* file, bool on) {
    return write_attribute(file, switch_text(on));
}

bool SysfsGate::set_interface_default(const std::string& root_hub, bool on) {
    return write_attribute(in_usb(root_hub) + "/" + kInterfaceDefault, switch_text(on));
}

std::vector<std::string> SysfsGate::root_hubs() {
    std::vector<std::string> hubs;
    for (const std::string& name : directory_entries(kUsbDevicesDir)) {
        if (base::StartsWith(name, "usb")) hubs.push_back(name);
    }
    return hubs;
}

bool SysfsGate::is_there(const std::string& root_hub) {
    return entry_exists(in_usb(root_hub));
}

std::vector<Subject> SysfsGate::usb_devices() {
    std::vector<Subject> devices;
    for (const std::string& name : directory_entries(kUsbDevicesDir)) {
        const bool is_device = isdigit(static_cast<unsigned char>(name[0])) != 0 &&
                               name.find(':') == std::string::npos;
        if (is_device) devices.push_back({name, usb_number(name)});
    }
    return devices;
}

std::vector<std::string> SysfsGate::hid_devices() {
    std::vector<std::string> devices;
    for (const std::string& name : directory_entries(kHidDevicesDir)) {
        if (is_hid_name(name)) devices.push_back(name);
    }
    return devices;
}

std::string SysfsGate::driver_of(const std::string& entry) {
    return try_driver_of(entry).value_or("");
}

// The kernel answers with success in any case; the "driver" link tells.
bool SysfsGate::probe(const std::string& entry) {
    return write_attribute(kUsbProbeFile, entry);
}

GateSystem::Bound SysfsGate::bind(const std::string& driver, const std::string& entry) {
    const std::string file = std::string(kUsbDriversDir) + "/" + driver + "/bind";
    const base::unique_fd fd(insistently([&] { return open(file.c_str(), O_WRONLY | O_CLOEXEC); }));
    if (!fd.ok()) return has_gone(errno) ? Bound::kNoSuchDriver : Bound::kNotTried;
    // The link tells.
    write_attribute(fd, entry);
    const auto bound = try_driver_of(entry);
    if (!bound) return Bound::kNotTried;
    return *bound == driver ? Bound::kYes : Bound::kNo;
}

void SysfsGate::unbind(const std::string& driver, const Subject& device) {
    const DeviceDirectory directory(device);
    if (!directory.is_there()) return;
    write_attribute(std::string(kUsbDriversDir) + "/" + driver + "/unbind", device.name);
}

std::optional<Identity> SysfsGate::identity(const Subject& device) {
    return read_usb_identity(device);
}

// The kernel does not use a directory's inode number again.
std::optional<uint64_t> SysfsGate::incarnation(const Subject& device) {
    const DeviceDirectory directory(device);
    switch (directory.presence()) {
        case DeviceDirectory::Presence::kThere:
            return directory.inode();
        case DeviceDirectory::Presence::kGone:
            return 0;
        case DeviceDirectory::Presence::kUnknown:
            return std::nullopt;
    }
    return std::nullopt;
}

std::optional<std::vector<UsbInterface>> SysfsGate::interfaces(const Subject& device) {
    const DeviceDirectory directory(device);
    auto interfaces = read_interfaces(directory.fd(), device.name);
    switch (directory.presence()) {
        case DeviceDirectory::Presence::kThere:
            return interfaces;
        case DeviceDirectory::Presence::kGone:
            return std::vector<UsbInterface>();
        case DeviceDirectory::Presence::kUnknown:
            return std::nullopt;
    }
    return std::nullopt;
}

std::optional<int32_t> SysfsGate::class_of(const std::string& interface) {
    const std::string code = usb_attribute(interface, "bInterfaceClass");
    if (code.empty()) return std::nullopt;
    return static_cast<int32_t>(strtol(code.c_str(), nullptr, 16));
}

// The directory is held, so that what is written goes to the device that was compared, or nowhere.
bool SysfsGate::authorize(const Subject& device, uint64_t incarnation, const std::string& interface,
                          bool on) {
    const DeviceDirectory directory(device);
    if (!directory.is_there()) return false;
    if (incarnation != 0 && directory.inode() != incarnation) return false;
    return directory.write(interface + "/authorized", on ? '1' : '0');
}

void SysfsGate::authorize_root(const std::string& root_hub, const std::string& interface) {
    write_attribute(in_usb(root_hub) + "/" + interface + "/authorized", switch_text(true));
}

std::optional<bool> SysfsGate::tells_hub(const Subject& device) {
    return gives_hub_descriptor(device);
}

std::optional<std::vector<uint8_t>> SysfsGate::report_descriptor(const Subject& device,
                                                                 const UsbInterface& interface) {
    return read_report_descriptor(device, interface.number);
}

bool SysfsGate::hid_has_driver(const std::string& hid_device) {
    return entry_exists(in_hid(hid_device) + "/driver");
}

bool SysfsGate::probe_hid(const std::string& hid_device) {
    return write_attribute(kHidProbeFile, hid_device);
}

std::string SysfsGate::hid_label(const std::string& hid_device) {
    constexpr char kName[] = "HID_NAME=";
    std::string text;
    base::ReadFileToString(in_hid(hid_device) + "/uevent", &text);
    for (const std::string& line : base::Split(text, "\n")) {
        if (base::StartsWith(line, kName)) return clean_name(line.substr(sizeof(kName) - 1));
    }
    return "";
}

std::vector<uint8_t> SysfsGate::hid_report_descriptor(const std::string& hid_device) {
    std::string text;
    base::ReadFileToString(in_hid(hid_device) + "/report_descriptor", &text);
    return {text.begin(), text.end()};
}

bool SysfsGate::is_of_a_bus(const std::string& input) {
    return is_input_of_a_bus(input);
}

std::vector<std::string> SysfsGate::silent_inputs() {
    std::vector<std::string> inputs;
    for (const std::string& name : directory_entries(kInputClassDir)) {
        std::string text;
        const std::string file = std::string(kInputClassDir) + "/" + name + "/inhibited";
        const bool is_input = base::StartsWith(name, "input");
        if (is_input && base::ReadFileToString(file, &text) && base::Trim(text) == "1") {
            inputs.push_back(name);
        }
    }
    return inputs;
}

}  // namespace android::vus::hotplug
