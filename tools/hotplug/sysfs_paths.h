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
// Whether the kernel looks for drivers by itself, for whatever comes.
inline constexpr char kUsbAutoprobeFile[] = "/sys/bus/usb/drivers_autoprobe";
inline constexpr char kHidAutoprobeFile[] = "/sys/bus/hid/drivers_autoprobe";
// With a directory for each driver: written an interface's name, its "bind" tries that one alone.
inline constexpr char kUsbDriversDir[] = "/sys/bus/usb/drivers";
inline constexpr char kHidDriversDir[] = "/sys/bus/hid/drivers";
// Of a root hub: whether the interfaces of what comes to its bus are on.
inline constexpr char kInterfaceDefault[] = "interface_authorized_default";
// Where devtmpfs has the nodes of USB devices, by bus and device number.
inline constexpr char kUsbNodesDir[] = "/dev/bus/usb";
// Where devtmpfs has the event nodes; no udev daemon moves them.
inline constexpr char kInputNodesDir[] = "/dev/input";

}  // namespace android::vus::hotplug
