// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/usb_entry.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>
#include <utility>

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

// Nothing if that cannot be told.
std::optional<bool> exists(int directory, const std::string& path) {
    struct stat status;
    const int result = insistently(
            [&] { return fstatat(directory, path.c_str(), &status, AT_SYMLINK_NOFOLLOW); });
    if (result != 0 && !has_gone(errno)) return std::nullopt;
    return result == 0;
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

// In their order; nothing, with errno telling why, if they cannot be listed.
template <typename Wanted>
std::optional<std::vector<std::string>> list(int directory, const char* path,
                                             const Wanted& wanted) {
    std::vector<std::string> names;
    const int result = insistently([&] { return list(directory, path, wanted, &names) ? 0 : -1; });
    if (result != 0) return std::nullopt;
    std::sort(names.begin(), names.end());
    return names;
}

// Empty without one, nothing if that cannot be told.
std::optional<std::string> driver_of(int directory, const std::string& entry) {
    char target[PATH_MAX];
    const std::string path = entry + "/driver";
    const ssize_t length = insistently(
            [&] { return readlinkat(directory, path.c_str(), target, sizeof(target)); });
    if (length < 0 && !has_gone(errno)) return std::nullopt;
    if (length <= 0) return "";
    const std::string_view text(target, static_cast<size_t>(length));
    return std::string(text.substr(text.rfind('/') + 1));
}

// Nothing if they cannot all be told.
std::optional<std::vector<HidDevice>> hid_devices_of(int directory, const std::string& interface) {
    std::vector<HidDevice> devices;
    const auto is_hid = [](std::string_view name) { return is_hid_name(name); };
    const auto names = list(directory, interface.c_str(), is_hid);
    if (!names) return has_gone(errno) ? std::make_optional(devices) : std::nullopt;
    for (const std::string& name : *names) {
        const std::string path = interface + "/" + name;
        const auto has_driver = exists(directory, path + "/driver");
        const auto has_input = exists(directory, path + "/input");
        if (!has_driver || !has_input) return std::nullopt;
        devices.push_back({name, *has_driver, *has_input});
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

enum class Reading { kDone, kGone, kFailed };

// What has no driver has made nothing of the interface. Older kernels have none that is off.
Reading read_interface(int directory, UsbInterface* interface) {
    const std::string& name = interface->name;
    const auto code = try_attribute(directory, name + "/bInterfaceClass");
    if (!code) return has_gone(errno) ? Reading::kGone : Reading::kFailed;
    interface->class_code = number(*code, 16);
    auto driver = driver_of(directory, name);
    if (!driver) return Reading::kFailed;
    interface->driver = std::move(*driver);
    const auto authorized = try_attribute(directory, name + "/authorized");
    if (!authorized && !has_gone(errno)) return Reading::kFailed;
    interface->authorized = authorized != "0";
    if (interface->driver.empty()) return Reading::kDone;
    auto hid_devices = hid_devices_of(directory, name);
    if (!hid_devices) return Reading::kFailed;
    interface->hid_devices = std::move(*hid_devices);
    return Reading::kDone;
}

bool is_vendor_hid(const HidDevice& device) {
    return device.has_driver && !device.has_input_device;
}

bool has_hid(const UsbInterface& interface, bool (*is_such)(const HidDevice&)) {
    return std::any_of(interface.hid_devices.begin(), interface.hid_devices.end(), is_such);
}

}  // namespace

std::optional<std::vector<std::string>> try_directory_entries(const std::string& path) {
    auto names = list(AT_FDCWD, path.c_str(), [](std::string_view) { return true; });
    if (!names && has_gone(errno)) return std::vector<std::string>();
    return names;
}

std::vector<std::string> directory_entries(const std::string& path) {
    return try_directory_entries(path).value_or(std::vector<std::string>());
}

bool has_gone(int error) {
    return error == ENOENT || error == ENODEV || error == ENXIO;
}

std::string read_attribute(int directory, const std::string& path) {
    return try_attribute(directory, path).value_or("");
}

std::optional<std::string> try_attribute(int directory, const std::string& path) {
    char text[kMostOfAnAttribute];
    const ssize_t length = insistently([&]() -> ssize_t {
        const base::unique_fd fd(openat(directory, path.c_str(), O_RDONLY | O_CLOEXEC));
        return fd.ok() ? TEMP_FAILURE_RETRY(read(fd.get(), text, sizeof(text))) : -1;
    });
    if (length < 0) return std::nullopt;
    return base::Trim(std::string(text, static_cast<size_t>(length)));
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

std::optional<std::vector<std::string>> interface_names(int directory, const std::string& device) {
    const std::string prefix = device + ":";
    return list(directory, ".", [&prefix](std::string_view name) {
        return name.substr(0, prefix.size()) == prefix;
    });
}

std::optional<std::vector<UsbInterface>> read_interfaces(int directory, const std::string& device) {
    std::vector<UsbInterface> interfaces;
    const auto names = interface_names(directory, device);
    if (!names) return has_gone(errno) ? std::make_optional(interfaces) : std::nullopt;
    for (const std::string& name : *names) {
        UsbInterface interface = {name, interface_number(name), 0, "", true, {}};
        switch (read_interface(directory, &interface)) {
            case Reading::kDone:
                interfaces.push_back(std::move(interface));
                break;
            case Reading::kGone:
                break;
            case Reading::kFailed:
                return std::nullopt;
        }
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

std::optional<int32_t> try_usb_number(const std::string& device) {
    if (!is_device_entry(device)) return 0;
    const auto devnum = try_attribute(AT_FDCWD, path_of(device) + "/devnum");
    if (!devnum && !has_gone(errno)) return std::nullopt;
    return number_with(device, devnum.value_or(""));
}

int32_t usb_number(const std::string& device) {
    return try_usb_number(device).value_or(0);
}

std::optional<int32_t> usb_number(int directory, const std::string& device) {
    const auto devnum = try_attribute(directory, "devnum");
    return devnum ? std::make_optional(number_with(device, *devnum)) : std::nullopt;
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

bool serves_hub(int directory, const std::string& interface) {
    const auto driver = driver_of(directory, interface);
    return driver ? *driver == kHubDriver : number(read_attribute(directory, "maxchild"), 10) > 0;
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
