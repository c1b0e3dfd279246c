// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/device_reader.h"

#include <fcntl.h>
#include <libevdev/libevdev.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "android/vus/paths.h"
#include "tools/common/input_sources.h"
#include "tools/hotplug/device_node.h"
#include "tools/hotplug/names.h"
#include "tools/hotplug/sysfs_paths.h"
#include "tools/hotplug/usb_entry.h"

namespace android::vus::hotplug {

namespace {

int32_t hexadecimal(const std::string& entry, const char* name) {
    return static_cast<int32_t>(strtol(usb_attribute(entry, name).c_str(), nullptr, 16));
}

std::string usb_name(const std::string& entry) {
    const std::string product = clean_name(usb_attribute(entry, "product"));
    return product.empty()
                   ? usb_attribute(entry, "idVendor") + ":" + usb_attribute(entry, "idProduct")
                   : product;
}

DeviceInfo usb_identity(const Subject& device) {
    DeviceInfo info;
    info.deviceName = usb_name(device.name);
    info.deviceId = device.number;
    info.deviceClass = hexadecimal(device.name, "bDeviceClass");
    info.vendorId = hexadecimal(device.name, "idVendor");
    info.productId = hexadecimal(device.name, "idProduct");
    info.deviceType = kUsbType;
    return info;
}

DeviceInfo usb_info(DeviceInfo info, const std::vector<UsbInterface>& interfaces,
                    const std::set<std::string>& vendor_hid) {
    info.interfaceClassList.reserve(interfaces.size());
    for (const UsbInterface& interface : interfaces) {
        const bool is_vendors = interface.driver.empty() && vendor_hid.count(interface.name) != 0;
        info.interfaceClassList.push_back(is_vendors ? kVendorSpecificClass
                                                     : reported_class(interface));
    }
    return info;
}

using Evdev = std::unique_ptr<libevdev, void (*)(libevdev*)>;

DeviceInfo input_info(const std::string& input, const libevdev* device) {
    DeviceInfo info;
    info.deviceName = clean_name(libevdev_get_name(device));
    info.deviceId = static_cast<int32_t>(strtol(input.c_str() + strlen("input"), nullptr, 10));
    info.deviceType = kInputType;
    info.vendorId = libevdev_get_id_vendor(device);
    info.productId = libevdev_get_id_product(device);
    info.deviceClass = input_sources(
            {[device](unsigned type, unsigned code) {
                 return libevdev_has_event_code(device, type, code) == 1;
             },
             [device](unsigned property) { return libevdev_has_property(device, property) == 1; }});
    return info;
}

// Leaves both empty for an input device that is none of a HID device's.
void see_behind(const std::string& input, Sighting* seen) {
    std::string path;
    base::Realpath(std::string(kInputClassDir) + "/" + input + "/device", &path);
    const std::string name = base::Basename(path);
    if (!is_hid_name(name)) return;
    seen->hid_device = name;
    const std::string usb_device = base::Basename(base::Dirname(base::Dirname(path)));
    seen->usb_device = {usb_device, usb_number(usb_device)};
}

}  // namespace

std::optional<DeviceInfo> read_usb_identity(const Subject& device) {
    if (device.number == 0 || usb_number(device.name) != device.number) return std::nullopt;
    DeviceInfo info = usb_identity(device);
    if (usb_number(device.name) != device.number) return std::nullopt;
    return info;
}

Sighting read_usb_device(const Subject& device) {
    wait_until_configured(device.name);
    const std::optional<DeviceInfo> identity = read_usb_identity(device);
    return identity ? look_at_usb_device(device, *identity, {}) : Sighting();
}

Sighting look_at_usb_device(const Subject& device, const DeviceInfo& identity,
                            const std::set<std::string>& vendor_hid) {
    const std::vector<UsbInterface> interfaces = read_interfaces(device.name);
    Sighting seen;
    seen.layout = layout_of(interfaces);
    seen.shape = shape_of(interfaces);
    seen.bare = std::all_of(interfaces.begin(), interfaces.end(),
                            [](const UsbInterface& interface) { return interface.driver.empty(); });
    seen.settled = is_settled(interfaces);
    if (!is_hub(interfaces)) seen.info = usb_info(identity, interfaces, vendor_hid);
    // What was read may be of two devices.
    if (device.number == 0 || usb_number(device.name) != device.number) return {};
    return seen;
}

Sighting read_input_device(const std::string& input, const std::string& event) {
    const std::string node = std::string(kInputNodesDir) + "/" + event;
    const base::unique_fd fd =
            open_node(node, O_RDONLY | O_NONBLOCK, std::string(kInputClassDir) + "/" + event);
    libevdev* opened = nullptr;
    Sighting seen;
    if (!fd.ok() || libevdev_new_from_fd(fd.get(), &opened) != 0) {
        seen.settled = false;
        return seen;
    }
    const Evdev device(opened, libevdev_free);
    see_behind(input, &seen);
    seen.info = input_info(input, device.get());
    if (seen.info->deviceClass == 0) seen.info.reset();
    return seen;
}

}  // namespace android::vus::hotplug
