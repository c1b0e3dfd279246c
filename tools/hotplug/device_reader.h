// SPDX-License-Identifier: Apache-2.0
//
// What is reported of a device: a DeviceInfo read from the device's sysfs directory, or for an
// input device from its event node. Names are printable, whatever the device says. Stateless; any
// thread, but not one that others wait for: the kernel makes readers wait for a device that does
// not answer.

#pragma once

#include <optional>
#include <string>

#include "android/vus/DeviceInfo.h"

namespace android::vus::hotplug {

// Whether the device is a hub and nothing else. Such a device is not reported: refusing it would
// take away every device behind it, and hubs are no device that a policy names.
//
// It is the interfaces that count. The class of the device as a whole is a claim that no driver
// need honour: a disk that calls itself a hub is bound by the disk's driver all the same.
bool is_hub(const DeviceInfo& info);

// The USB device of that name in sysfs, such as "1-2.4.1". Nothing if it has gone, or is a hub.
std::optional<DeviceInfo> read_usb_device(const std::string& entry);

// The input device `input` ("input3") by its event node `event` ("event2"). Nothing if it has
// gone, or is no source of input in the platform's terms, such as a lid switch.
std::optional<DeviceInfo> read_input_device(const std::string& input, const std::string& event);

}  // namespace android::vus::hotplug
