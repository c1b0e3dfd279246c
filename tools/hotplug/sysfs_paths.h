// SPDX-License-Identifier: Apache-2.0
//
// Where the kernel shows, and lets be switched, what is reported here; besides what
// android/vus/paths.h has.

#pragma once

namespace android::vus::hotplug {

// Written an interface's name: the kernel looks for a driver for it.
inline constexpr char kUsbProbeFile[] = "/sys/bus/usb/drivers_probe";
inline constexpr char kHidDevicesDir[] = "/sys/bus/hid/devices";
inline constexpr char kHidProbeFile[] = "/sys/bus/hid/drivers_probe";
inline constexpr char kInputClassDir[] = "/sys/class/input";
// Where devtmpfs has the event nodes; no udev daemon moves them.
inline constexpr char kInputNodesDir[] = "/dev/input";

}  // namespace android::vus::hotplug
