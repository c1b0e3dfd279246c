// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/device_reader.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <libevdev/libevdev.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "android/vus/insistently.h"
#include "android/vus/paths.h"
#include "tools/common/input_sources.h"
#include "tools/hotplug/device_directory.h"
#include "tools/hotplug/device_node.h"
#include "tools/hotplug/names.h"
#include "tools/hotplug/sysfs_paths.h"
#include "tools/hotplug/usb_entry.h"

namespace android::vus::hotplug {

namespace {

int32_t hexadecimal(const std::string& text) {
    return static_cast<int32_t>(strtol(text.c_str(), nullptr, 16));
}

// It need not have a name; but what has one would be another device without it.
std::optional<DeviceInfo> usb_identity(const DeviceDirectory& directory, int32_t number) {
    const auto vendor = try_attribute(directory.fd(), "idVendor");
    const auto product = try_attribute(directory.fd(), "idProduct");
    const auto code = try_attribute(directory.fd(), "bDeviceClass");
    if (!vendor || !product || !code) return std::nullopt;
    const auto name = try_attribute(directory.fd(), "product");
    if (!name && !has_gone(errno)) return std::nullopt;
    DeviceInfo info;
    info.deviceName = clean_name(name.value_or(""));
    if (info.deviceName.empty()) info.deviceName = *vendor + ":" + *product;
    info.deviceId = number;
    info.deviceClass = hexadecimal(*code);
    info.vendorId = hexadecimal(*vendor);
    info.productId = hexadecimal(*product);
    info.deviceType = kUsbType;
    return info;
}

// Of what could not be read: it may have gone because of that.
Sighting unread_unless_gone(const Subject& device) {
    Sighting seen;
    seen.unread = DeviceDirectory(device).presence() != DeviceDirectory::Presence::kGone;
    return seen;
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

DeviceInfo input_info(const std::string& input, const libevdev* device, int32_t sources) {
    DeviceInfo info;
    info.deviceName = clean_name(libevdev_get_name(device));
    info.deviceId = static_cast<int32_t>(strtol(input.c_str() + strlen("input"), nullptr, 10));
    info.deviceType = kInputType;
    info.vendorId = libevdev_get_id_vendor(device);
    info.productId = libevdev_get_id_product(device);
    info.deviceClass = sources;
    return info;
}

InputCapabilities capabilities_of(const libevdev* device) {
    return {[device](unsigned type, unsigned code) {
                return libevdev_has_event_code(device, type, code) == 1;
            },
            [device](unsigned property) { return libevdev_has_property(device, property) == 1; }};
}

// A root hub's, such as "usb1".
bool is_bus_name(const std::string& name) {
    constexpr size_t kNumberAt = sizeof("usb") - 1;
    return name.size() > kNumberAt && base::StartsWith(name, "usb") &&
           isdigit(static_cast<unsigned char>(name[kNumberAt])) != 0;
}

}  // namespace

std::optional<DeviceInfo> read_usb_identity(const Subject& device) {
    const DeviceDirectory directory(device);
    auto info = usb_identity(directory, device.number);
    return directory.is_there() ? std::move(info) : std::nullopt;
}

Sighting read_usb_device(const Subject& device) {
    wait_until_configured(device.name);
    const std::optional<DeviceInfo> identity = read_usb_identity(device);
    return identity ? look_at_usb_device(device, *identity, {}) : unread_unless_gone(device);
}

Sighting look_at_usb_device(const Subject& device, const DeviceInfo& identity,
                            const std::set<std::string>& vendor_hid) {
    const DeviceDirectory directory(device);
    const auto interfaces = read_interfaces(directory.fd(), device.name);
    if (!interfaces || !directory.is_there()) return unread_unless_gone(device);
    return sighting_of(identity, *interfaces, vendor_hid);
}

Sighting sighting_of(const DeviceInfo& identity, const std::vector<UsbInterface>& interfaces,
                     const std::set<std::string>& vendor_hid) {
    Sighting seen;
    seen.layout = layout_of(interfaces);
    seen.shape = shape_of(interfaces);
    seen.bare = std::all_of(interfaces.begin(), interfaces.end(),
                            [](const UsbInterface& interface) { return interface.driver.empty(); });
    seen.off = std::none_of(interfaces.begin(), interfaces.end(),
                            [](const UsbInterface& interface) { return interface.authorized; });
    seen.settled = is_settled(interfaces);
    if (!is_hub(interfaces)) seen.info = usb_info(identity, interfaces, vendor_hid);
    return seen;
}

bool see_behind(const std::string& input, Sighting* seen) {
    const std::string link = std::string(kInputClassDir) + "/" + input + "/device";
    std::string path;
    const int result = insistently([&] { return base::Realpath(link, &path) ? 0 : -1; });
    if (result != 0 && !has_gone(errno)) return false;
    const std::string name = base::Basename(path);
    if (!is_hid_name(name)) return true;
    const std::string usb_device = base::Basename(base::Dirname(base::Dirname(path)));
    const auto number = try_usb_number(usb_device);
    if (!number) return false;
    seen->hid_device = name;
    seen->usb_device = {usb_device, *number};
    return true;
}

Sighting read_input_device(const std::string& input, const std::string& event) {
    const std::string node = std::string(kInputNodesDir) + "/" + event;
    const base::unique_fd fd =
            open_node(node, O_RDONLY | O_NONBLOCK, std::string(kInputClassDir) + "/" + event);
    libevdev* opened = nullptr;
    const int error = fd.ok() ? -libevdev_new_from_fd(fd.get(), &opened) : errno;
    if (error != 0) {
        Sighting seen;
        // A built-in one stays as it is: no rule of any policy is about what nobody can open.
        seen.unread = !has_gone(error) && is_input_of_a_bus(input);
        seen.settled = false;
        return seen;
    }
    const Evdev device(opened, libevdev_free);
    return sighting_of_input(input, device.get());
}

Sighting sighting_of_input(const std::string& input, const libevdev* device) {
    Sighting seen;
    const InputCapabilities capabilities = capabilities_of(device);
    const bool came = is_input_of_a_bus(input);
    const std::optional<int32_t> sources =
            came ? reported_sources(capabilities) : input_sources(capabilities);
    const bool is_a_source = sources.value_or(0) != 0;
    if (!sources || !(is_a_source || came)) return seen;
    seen.info = input_info(input, device, *sources);
    if (is_a_source && came) seen.unread = !see_behind(input, &seen);
    return seen;
}

bool is_input_of_a_bus(const std::string& input) {
    const std::string link = std::string(kInputClassDir) + "/" + input;
    std::string path;
    const int result = insistently([&] { return base::Realpath(link, &path) ? 0 : -1; });
    if (result != 0) return !has_gone(errno);
    const std::vector<std::string> names = base::Split(path, "/");
    return std::any_of(names.begin(), names.end(), [](const std::string& name) {
        return is_hid_name(name) || is_bus_name(name);
    });
}

}  // namespace android::vus::hotplug
