// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/usb_entry.h"

#include <ctype.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

#include <android-base/strings.h>
#include <android-base/unique_fd.h>

#include "android/vus/insistently.h"
#include "android/vus/paths.h"
#include "android/vus/sysfs.h"
#include "tools/hotplug/subject.h"

namespace android::vus::hotplug {

namespace {

// The kernel has a page for it.
constexpr size_t kMostOfAnAttribute = 4096;

std::string path_of(const std::string& entry) {
    return std::string(kUsbDevicesDir) + "/" + entry;
}

int32_t number(const std::string& text, int base) {
    return static_cast<int32_t>(strtol(text.c_str(), nullptr, base));
}

bool is_device_entry(const std::string& entry) {
    return !entry.empty() && isdigit(static_cast<unsigned char>(entry[0])) != 0 &&
           entry.find(':') == std::string::npos;
}

bool exists(int directory, const std::string& path) {
    struct stat status;
    return insistently([&] {
               return fstatat(directory, path.c_str(), &status, AT_SYMLINK_NOFOLLOW);
           }) == 0;
}

// False if the listing failed before its end.
template <typename Wanted>
bool list(int directory, const char* path, const Wanted& wanted, std::vector<std::string>* names) {
    names->clear();
    usb::DirectoryReader listing(directory, path);
    if (!listing.ok()) return false;
    while (const dirent64* entry = listing.next()) {
        if (wanted(std::string_view(entry->d_name))) names->emplace_back(entry->d_name);
    }
    return !listing.failed();
}

// In their order.
template <typename Wanted>
std::vector<std::string> list(int directory, const char* path, const Wanted& wanted) {
    std::vector<std::string> names;
    insistently([&] { return list(directory, path, wanted, &names) ? 0 : -1; });
    std::sort(names.begin(), names.end());
    return names;
}

std::string driver_of(int directory, const std::string& entry) {
    char target[PATH_MAX];
    const std::string path = entry + "/driver";
    const ssize_t length = insistently(
            [&] { return readlinkat(directory, path.c_str(), target, sizeof(target)); });
    if (length <= 0) return "";
    const std::string_view text(target, static_cast<size_t>(length));
    return std::string(text.substr(text.rfind('/') + 1));
}

std::vector<HidDevice> hid_devices_of(int directory, const std::string& interface) {
    std::vector<HidDevice> devices;
    const auto is_hid = [](std::string_view name) { return is_hid_name(name); };
    for (const std::string& name : list(directory, interface.c_str(), is_hid)) {
        const std::string path = interface + "/" + name;
        devices.push_back(
                {name, exists(directory, path + "/driver"), exists(directory, path + "/input")});
    }
    return devices;
}

int32_t number_with(const std::string& device, const std::string& devnum) {
    const int32_t of_device = number(devnum, 10);
    return of_device == 0 ? 0 : number(device, 10) * 1000 + of_device;
}

// The last number of a name such as "1-2.4:1.0".
int32_t interface_number(const std::string& name) {
    return number(name.substr(name.rfind('.') + 1), 10);
}

bool is_vendor_hid(const HidDevice& device) {
    return device.has_driver && !device.has_input_device;
}

bool has_hid(const UsbInterface& interface, bool (*is_such)(const HidDevice&)) {
    return std::any_of(interface.hid_devices.begin(), interface.hid_devices.end(), is_such);
}

}  // namespace

std::vector<std::string> directory_entries(const std::string& path) {
    return list(AT_FDCWD, path.c_str(), [](std::string_view) { return true; });
}

std::string read_attribute(int directory, const std::string& path) {
    char text[kMostOfAnAttribute];
    const ssize_t length = insistently([&]() -> ssize_t {
        const base::unique_fd fd(openat(directory, path.c_str(), O_RDONLY | O_CLOEXEC));
        return fd.ok() ? TEMP_FAILURE_RETRY(read(fd.get(), text, sizeof(text))) : -1;
    });
    return length <= 0 ? "" : base::Trim(std::string(text, static_cast<size_t>(length)));
}

std::string usb_attribute(const std::string& entry, const char* name) {
    return read_attribute(AT_FDCWD, path_of(entry) + "/" + name);
}

bool is_hid_name(std::string_view name) {
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

// What has no driver has made nothing of the interface.
std::vector<UsbInterface> read_interfaces(int directory, const std::string& device) {
    std::vector<UsbInterface> interfaces;
    const std::string prefix = device + ":";
    const auto is_interface = [&prefix](std::string_view name) {
        return name.substr(0, prefix.size()) == prefix;
    };
    for (const std::string& name : list(directory, ".", is_interface)) {
        const std::string code = read_attribute(directory, name + "/bInterfaceClass");
        if (code.empty()) continue;  // gone since it was listed
        UsbInterface interface = {name,
                                  interface_number(name),
                                  number(code, 16),
                                  driver_of(directory, name),
                                  read_attribute(directory, name + "/authorized") != "0",
                                  {}};
        if (!interface.driver.empty()) interface.hid_devices = hid_devices_of(directory, name);
        interfaces.push_back(std::move(interface));
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
    if (!is_device_entry(device)) return 0;
    return number_with(device, usb_attribute(device, "devnum"));
}

int32_t usb_number(int directory, const std::string& device) {
    return number_with(device, read_attribute(directory, "devnum"));
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
