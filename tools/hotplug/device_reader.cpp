// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/device_reader.h"

#include <dirent.h>
#include <fcntl.h>
#include <libevdev/libevdev.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <map>
#include <memory>

#include <android-base/file.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "android/vus/paths.h"
#include "tools/common/text.h"
#include "tools/hotplug/input_sources.h"

namespace android::vus::hotplug {

namespace {

constexpr int32_t kHubClass = 9;
constexpr int32_t kUsbType = 0;
constexpr int32_t kInputType = 1;
// Where the kernel's devtmpfs has the event nodes; no udev daemon moves them.
constexpr char kInputNodesDir[] = "/dev/input/";

std::string attribute(const std::string& entry, const char* name) {
    std::string value;
    base::ReadFileToString(std::string(kUsbDevicesDir) + "/" + entry + "/" + name, &value);
    return base::Trim(value);
}

int32_t number(const std::string& entry, const char* name, int base) {
    return static_cast<int32_t>(strtol(attribute(entry, name).c_str(), nullptr, base));
}

// The classes of the device's interfaces, in the order of their numbers; sysfs lists them in
// none.
std::vector<int32_t> interface_classes(const std::string& entry) {
    std::map<int32_t, int32_t> classes;
    const std::string path = std::string(kUsbDevicesDir) + "/" + entry;
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(path.c_str()), closedir);
    if (directory == nullptr) return {};
    while (const dirent* item = readdir(directory.get())) {
        const std::string name = item->d_name;
        // Empty: the interface has gone since it was listed.
        if (!base::StartsWith(name, entry + ":") || attribute(name, "bInterfaceClass").empty()) {
            continue;
        }
        classes[number(name, "bInterfaceNumber", 16)] = number(name, "bInterfaceClass", 16);
    }
    std::vector<int32_t> in_order;
    in_order.reserve(classes.size());
    for (const auto& [interface, code] : classes) in_order.push_back(code);
    return in_order;
}

// The kernel answers this attribute only when it is done with configuring the device and binding
// its interfaces; a device that stalls that would otherwise be read with half of them.
void wait_until_configured(const std::string& entry) {
    attribute(entry, "bNumInterfaces");
}

std::string usb_name(const std::string& entry) {
    const std::string product = printable(attribute(entry, "product"));
    return product.empty() ? attribute(entry, "idVendor") + ":" + attribute(entry, "idProduct")
                           : product;
}

using Evdev = std::unique_ptr<libevdev, void (*)(libevdev*)>;

DeviceInfo input_info(const std::string& input, const libevdev* device) {
    DeviceInfo info;
    info.deviceName = printable(libevdev_get_name(device));
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

}  // namespace

bool is_hub(const DeviceInfo& info) {
    const std::vector<int32_t>& classes = info.interfaceClassList;
    if (classes.empty()) return info.deviceClass == kHubClass;
    return std::all_of(classes.begin(), classes.end(),
                       [](int32_t code) { return code == kHubClass; });
}

std::optional<DeviceInfo> read_usb_device(const std::string& entry) {
    wait_until_configured(entry);
    DeviceInfo info;
    const int32_t device = number(entry, "devnum", 10);
    if (device == 0) return std::nullopt;
    info.deviceName = usb_name(entry);
    info.deviceId = number(entry, "busnum", 10) * 1000 + device;
    info.deviceClass = number(entry, "bDeviceClass", 16);
    info.interfaceClassList = interface_classes(entry);
    info.vendorId = number(entry, "idVendor", 16);
    info.productId = number(entry, "idProduct", 16);
    info.deviceType = kUsbType;
    if (is_hub(info)) return std::nullopt;
    return info;
}

std::optional<DeviceInfo> read_input_device(const std::string& input, const std::string& event) {
    const std::string node = kInputNodesDir + event;
    const base::unique_fd fd(open(node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    libevdev* opened = nullptr;
    if (!fd.ok() || libevdev_new_from_fd(fd.get(), &opened) != 0) return std::nullopt;
    const Evdev device(opened, libevdev_free);
    DeviceInfo info = input_info(input, device.get());
    if (info.deviceClass == 0) return std::nullopt;
    return info;
}

}  // namespace android::vus::hotplug
