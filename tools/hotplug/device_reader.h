// SPDX-License-Identifier: Apache-2.0
//
// What is reported of a device: a DeviceInfo read from the device's sysfs directory, or for an
// input device from its event node. Stateless; any thread.

#pragma once

#include <optional>
#include <string>

#include "android/vus/DeviceInfo.h"

namespace android::vus::hotplug {

// Whether the entry of the USB devices directory is a device: buses and interfaces are none.
bool is_usb_device(const std::string& entry);

// Whether the device is a hub and nothing else. Such a device is not reported: refusing it would
// take away every device behind it, and hubs are no device that a policy names.
//
// It is the interfaces that count. The class of the device as a whole is a claim that no driver
// need honour: a disk that calls itself a hub is bound by the disk's driver all the same.
bool is_hub(const DeviceInfo& info);

// The USB device of that entry, such as "1-2.4.1"; nothing if it has gone.
std::optional<DeviceInfo> read_usb_device(const std::string& entry);

// The input device behind an event node: `input` is the sysfs name of the input device, such as
// "input3", `node` its node, such as "/dev/input/event2". Nothing if it cannot be opened, or is
// no source of input in the platform's terms.
std::optional<DeviceInfo> read_input_device(const std::string& input, const std::string& node);

}  // namespace android::vus::hotplug
