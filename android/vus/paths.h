// SPDX-License-Identifier: Apache-2.0

// Every fixed path and property name of the daemon, each written once.
//
// The paths are absolute and cannot be redirected: a policy daemon that can be pointed
// elsewhere by its environment is a policy daemon that can be switched off.

#pragma once

namespace android::vus {

// The policy directory. The daemon never creates it; the image or its init does.
inline constexpr char kConfigDir[] = "/data/system/usbdeviceconfig";
inline constexpr char kPolicyFileName[] = "usb_device_config.xml";
inline constexpr char kPolicyFile[] = "/data/system/usbdeviceconfig/usb_device_config.xml";
inline constexpr char kPolicyBackupFile[] =
        "/data/system/usbdeviceconfig/usb_device_config_backup.xml";
inline constexpr char kStatusFile[] = "/data/system/usbdeviceconfig/status.txt";

// The kernel's directory of USB buses, devices and interfaces
// (Documentation/ABI/testing/sysfs-bus-usb).
inline constexpr char kUsbDevicesDir[] = "/sys/bus/usb/devices";
// Parent of the USB controllers' directories; each has a "mode" file that reads "host" or "none".
inline constexpr char kSocDir[] = "/sys/devices/platform/soc/";
inline constexpr char kHighSpeedModeFile[] = "c200000.hsusb/mode";   // below kSocDir
inline constexpr char kSuperSpeedModeFile[] = "a800000.ssusb/mode";  // below kSocDir
inline constexpr char kUsbOnlineFile[] = "/sys/class/power_supply/usb/online";
inline constexpr char kDcOnlineFile[] = "/sys/class/power_supply/dc/online";

// System properties.
inline constexpr char kBuildTypeProperty[] = "ro.build.type";
inline constexpr char kAutomationProperty[] = "ro.config.device.vus_automation";
inline constexpr char kUndockProperty[] = "persist.vendor.monitor.undock";
inline constexpr char kDockProperty[] = "persist.vendor.monitor.dock";
inline constexpr char kResetProperty[] = "persist.vendor.monitor.reset";

// The name under which the service manager knows the daemon.
inline constexpr char kServiceName[] = "vusbservice";

}  // namespace android::vus
