// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/usb_entry.h"

#include <ctype.h>
#include <dirent.h>
#include <errno.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <string_view>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "android/vus/insistently.h"
#include "android/vus/paths.h"
#include "tools/hotplug/subject.h"

namespace android::vus::hotplug {

namespace {

std::string path_of(const std::string& entry) {
    return std::string(kUsbDevicesDir) + "/" + entry;
}

int32_t number(const std::string& text, int base) {
    return static_cast<int32_t>(strtol(text.c_str(), nullptr, base));
}

bool exists(const std::string& path) {
    struct stat status;
    return insistently([&] { return stat(path.c_str(), &status); }) == 0;
}

// False if the listing failed before its end.
bool list(const std::string& path, std::vector<std::string>* names) {
    names->clear();
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(path.c_str()), closedir);
    if (directory == nullptr) return false;
    errno = 0;
    while (const dirent* item = readdir(directory.get())) names->emplace_back(item->d_name);
    return errno == 0;
}

std::string driver_of(const std::string& path) {
    std::string target;
    const bool is_bound =
            insistently([&] { return base::Readlink(path + "/driver", &target) ? 0 : -1; }) == 0;
    return is_bound ? base::Basename(target) : "";
}

std::vector<HidDevice> hid_devices_of(const std::string& interface) {
    std::vector<HidDevice> devices;
    for (const std::string& name : directory_entries(path_of(interface))) {
        if (!is_hid_name(name)) continue;
        const std::string path = path_of(interface) + "/" + name;
        devices.push_back({name, !driver_of(path).empty(), exists(path + "/input")});
    }
    return devices;
}

bool is_vendor_hid(const HidDevice& device) {
    return device.has_driver && !device.has_input_device;
}

bool has_hid(const UsbInterface& interface, bool (*is_such)(const HidDevice&)) {
    return std::any_of(interface.hid_devices.begin(), interface.hid_devices.end(), is_such);
}

}  // namespace

std::vector<std::string> directory_entries(const std::string& path) {
    std::vector<std::string> names;
    insistently([&] { return list(path, &names) ? 0 : -1; });
    std::sort(names.begin(), names.end());
    return names;
}

std::string usb_attribute(const std::string& entry, const char* name) {
    std::string value;
    const std::string path = path_of(entry) + "/" + name;
    insistently([&] { return base::ReadFileToString(path, &value) ? 0 : -1; });
    return base::Trim(value);
}

bool is_hid_name(const std::string& name) {
    constexpr std::string_view kForm = "hhhh:hhhh:hhhh.hhhh";
    const auto has_form = [](char letter, char form) {
        return form == 'h' ? isxdigit(static_cast<unsigned char>(letter)) != 0 : letter == form;
    };
    // The number at the end counts all that there have been, and has as many digits as it needs.
    const std::string_view form = kForm.substr(0, name.size());
    return form == kForm &&
           std::equal(name.begin(), name.begin() + kForm.size(), form.begin(), has_form) &&
           std::all_of(name.begin() + kForm.size(), name.end(),
                       [&](char letter) { return has_form(letter, 'h'); });
}

std::vector<UsbInterface> read_interfaces(const std::string& device) {
    std::vector<UsbInterface> interfaces;
    for (const std::string& name : directory_entries(path_of(device))) {
        if (!base::StartsWith(name, device + ":")) continue;
        const std::string code = usb_attribute(name, "bInterfaceClass");
        if (code.empty()) continue;  // gone since it was listed
        interfaces.push_back({name, number(usb_attribute(name, "bInterfaceNumber"), 16),
                              number(code, 16), driver_of(path_of(name)),
                              usb_attribute(name, "authorized") != "0", hid_devices_of(name)});
    }
    std::sort(interfaces.begin(), interfaces.end(),
              [](const UsbInterface& one, const UsbInterface& other) {
                  return one.number < other.number;
              });
    return interfaces;
}

void wait_until_configured(const std::string& device) {
    usb_attribute(device, "bNumInterfaces");
}

int32_t usb_number(const std::string& device) {
    const int32_t of_device = number(usb_attribute(device, "devnum"), 10);
    return of_device == 0 ? 0 : number(usb_attribute(device, "busnum"), 10) * 1000 + of_device;
}

int32_t reported_class(const UsbInterface& interface) {
    const bool serves_hid = interface.driver.empty() || interface.driver == kHidDriver;
    return interface.class_code == kHidClass && !serves_hid ? kVendorSpecificClass
                                                            : interface.class_code;
}

bool is_hub(const std::vector<UsbInterface>& interfaces) {
    return !interfaces.empty() &&
           std::all_of(interfaces.begin(), interfaces.end(), [](const UsbInterface& interface) {
               return interface.driver == kHubDriver;
           });
}

bool is_settled(const std::vector<UsbInterface>& interfaces) {
    bool waits = false;
    for (const UsbInterface& interface : interfaces) {
        if (reported_class(interface) != kHidClass || has_hid(interface, is_vendor_hid))
            return true;
        waits |= has_hid(interface, [](const HidDevice& device) { return !device.has_driver; });
    }
    return !waits;
}

std::string layout_of(const std::vector<UsbInterface>& interfaces) {
    std::string layout;
    for (const UsbInterface& interface : interfaces) {
        layout += interface.name + "=" + std::to_string(interface.class_code) + " ";
    }
    return layout;
}

std::string shape_of(const std::vector<UsbInterface>& interfaces) {
    std::string shape;
    for (const UsbInterface& interface : interfaces) {
        shape += interface.name + "=" + interface.driver;
        for (const HidDevice& device : interface.hid_devices) {
            // Without the number at its end, which is new each time.
            shape += "," + device.name.substr(0, device.name.find('.')) +
                     (device.has_driver ? "+" : "-") + (device.has_input_device ? "+" : "-");
        }
        shape += " ";
    }
    return shape;
}

}  // namespace android::vus::hotplug
