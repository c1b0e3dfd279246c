// SPDX-License-Identifier: Apache-2.0
//
// What the parts of the component say to one another of a device.

#pragma once

#include <stdint.h>

#include <algorithm>
#include <optional>
#include <string>

#include "android/vus/DeviceInfo.h"

namespace android::vus::hotplug {

// Types of devices, as the daemon's interface has them.
inline constexpr int32_t kUsbType = 0;
inline constexpr int32_t kInputType = 1;

// Classes of interfaces, likewise.
inline constexpr int32_t kHidClass = 3;
inline constexpr int32_t kVendorSpecificClass = 255;

// Whether a USB device is nothing but HID, or has no interfaces, which the daemon judges as little.
inline bool is_hid(const DeviceInfo& info) {
    const auto& classes = info.interfaceClassList;
    return std::all_of(classes.begin(), classes.end(),
                       [](int32_t code) { return code == kHidClass; });
}

// Which device is meant. A USB device is its port and its number: at the same port there may be
// another one by now. An input device's name is never used again.
struct Subject {
    std::string name;    // in sysfs: "1-2.4.1", "input5"
    int32_t number = 0;  // of a USB device: bus number * 1000 + device number

    // By which it is told from others, that of a later device of the same number included, which
    // the daemon does not tell apart.
    bool is_usb() const { return !name.empty() && name[0] >= '0' && name[0] <= '9'; }
    std::string key() const { return number == 0 ? name : std::to_string(number); }
};

// What was seen of a device.
struct Sighting {
    std::optional<DeviceInfo> info;  // nothing: it has gone, or is none that is reported

    // Of a USB device.
    std::string layout;   // which interfaces it has, to be compared
    std::string shape;    // and what became of them
    bool bare = false;    // none of them has a driver
    bool off = false;     // nor gets one: each is switched off
    bool settled = true;  // false: what it is cannot be told yet
    bool unread = false;  // it is there, but what it is cannot be read

    // It has no driver, and gets none but by a "yes" (see gate.h).
    bool held = false;
    // It has been let in because the policy allows it, which is a "yes" that silence does not undo.
    bool vouched = false;

    // Of an input device: the HID device behind it, which may hand out the same input as hidraw,
    // and the USB device behind that. Of one that is held: the interface, if it is one's.
    std::string hid_device;
    Subject usb_device;

    // Which of the USB devices that were ever at that port it is, or is behind it. 0: not known.
    uint64_t incarnation = 0;
};

}  // namespace android::vus::hotplug
