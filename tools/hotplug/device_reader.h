// SPDX-License-Identifier: Apache-2.0
//
// What is reported of a device: a DeviceInfo read from the device's sysfs directory, or for an
// input device from its event node. Names are clean, whatever the device says. Stateless; any
// thread, but not one that others wait for: the kernel makes readers wait for a device that does
// not answer.

#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tools/hotplug/subject.h"
#include "tools/hotplug/usb_entry.h"

struct libevdev;

namespace android::vus::hotplug {

// The USB device of that name in sysfs, such as "1-2.4.1". Without info if it has gone, if another
// device is there by now, if it is a hub: refusing that would take away every device behind it,
// and hubs are no device that a policy names; or if it is unread, because without what could not be
// read it would be another device.
Sighting read_usb_device(const Subject& device);

// The same of a device that is configured already, and of which `identity` is known: waits for
// nothing, whatever the device's drivers do. `vendor_hid`: interfaces that are known to be their
// vendor's own HID, which shows only as long as they have a driver.
Sighting look_at_usb_device(const Subject& device, const DeviceInfo& identity,
                            const std::set<std::string>& vendor_hid);

// What interfaces that have just been read make of it.
Sighting sighting_of(const DeviceInfo& identity, const std::vector<UsbInterface>& interfaces,
                     const std::set<std::string>& vendor_hid);

// What the USB device says of itself, without its interfaces. Nothing if it has gone, if another
// one is there, or if it cannot be read.
std::optional<DeviceInfo> read_usb_identity(const Subject& device);

// The input device `input` ("input3") by its event node `event` ("event2"). Without info if it has
// gone, or is nothing to anybody who reads input, such as a lid switch; nor is what is built in,
// and passed over by the platform, such as a sensor: no rule could name it. What came of a bus, and
// is none of the sources, but could press or point all the same, is seen with none; and without
// what is behind it, which was judged by what else it is. Unread if it
// is not to be seen what is behind it.
Sighting read_input_device(const std::string& input, const std::string& event);
// The same of one whose node has been opened.
Sighting sighting_of_input(const std::string& input, const libevdev* device);

// Whether an input device came of a USB or a HID device, or may have, by any number of other
// devices in between, such as a sound card.
bool is_input_of_a_bus(const std::string& input);

// Which HID device is behind an input device, and which USB device behind that: both stay empty if
// none is. False if that cannot be told.
bool see_behind(const std::string& input, Sighting* seen);

}  // namespace android::vus::hotplug
