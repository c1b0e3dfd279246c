// SPDX-License-Identifier: Apache-2.0
//
// What is reported of a device: a DeviceInfo read from the device's sysfs directory, or for an
// input device from its event node. Stateless; any thread.

#pragma once

#include <optional>
#include <string>

#include "android/vus/DeviceInfo.h"

namespace android::vus::hotplug {

// Whether the entry of the USB devices directory is a device that is reported. Buses and
// interfaces are none; neither is a hub: refusing one would take away every device behind it,
// and hubs are no device that a policy names.
bool is_reported_usb_device(const std::string& entry);

// The USB device of that entry, such as "1-2.4.1"; nothing if it has gone.
std::optional<DeviceInfo> read_usb_device(const std::string& entry);

// The input device behind an event node: `input` is the sysfs name of the input device, such as
// "input3", `node` its node, such as "/dev/input/event2". Nothing if it cannot be opened, or is
// no source of input in the platform's terms.
std::optional<DeviceInfo> read_input_device(const std::string& input, const std::string& node);

}  // namespace android::vus::hotplug
