// SPDX-License-Identifier: Apache-2.0
//
// What the names and paths of devices in sysfs tell. A USB device is called by its bus and ports,
// "1-2.4.1", its interface "1-2.4.1:1.0", an input device "input5", its event node "event3". Root
// hubs are the controllers', not plugged in; they are called "usb1", and their interfaces
// "1-0:1.0". Stateless; any thread.

#pragma once

#include <ctype.h>

#include <string>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "tools/hotplug/usb_entry.h"

namespace android::vus::hotplug {

inline bool is_device_name(const std::string& name) {
    return !name.empty() && isdigit(static_cast<unsigned char>(name[0])) &&
           !base::EndsWith(name, "-0");
}

inline bool is_interface_name(const std::string& name) {
    return is_device_name(name) && name.find(':') != std::string::npos && !is_hid_name(name);
}

inline bool is_root_hub(const std::string& name) {
    return base::StartsWith(name, "usb");
}

inline bool is_input_device(const std::string& name) {
    return base::StartsWith(name, "input");
}

inline bool is_event_node(const std::string& name) {
    return base::StartsWith(name, "event");
}

// The event node's directory is in the input device's, a HID device's in the interface's.
inline std::string parent_of(const std::string& path) {
    return base::Basename(base::Dirname(path));
}

// The name of the USB device that an interface, or the device itself, belongs to.
inline std::string device_of(const std::string& name) {
    return name.substr(0, name.find(':'));
}

// The HID device in whose directory an input device is, or whatever else is there.
inline std::string bearer_of(const std::string& input_path) {
    return parent_of(base::Dirname(input_path));
}

}  // namespace android::vus::hotplug
