// SPDX-License-Identifier: Apache-2.0
//
// A USB device's interfaces as they are in sysfs at this moment: what they claim to be, and what
// drivers have made of them. A class is a claim, by which a driver may go or not: many bind by
// vendor and product alone. The driver is what tells.
//
// Stateless; any thread. Nothing here waits for a device, wait_until_configured() aside.

#pragma once

#include <stdint.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace android::vus::hotplug {

// The drivers that make hubs of interfaces, and HID devices.
inline constexpr char kHubDriver[] = "hub";
inline constexpr char kHidDriver[] = "usbhid";
// Which one an interface has that a program has claimed by the device's node.
inline constexpr char kNodeDriver[] = "usbfs";

// A HID device that an interface's driver has made of it.
struct HidDevice {
    std::string name;       // "0003:0627:0001.0001"
    bool has_driver;        // without one there is neither an input device nor a hidraw node
    bool has_input_device;  // without one it is its vendor's own
};

struct UsbInterface {
    std::string name;  // "1-2.4:1.0"
    int32_t number;
    int32_t class_code;  // as it claims
    std::string driver;  // empty: none
    bool authorized;     // to have a driver
    std::vector<HidDevice> hid_devices;
};

// Whether a directory's name is that of a HID device; the kernel's links to suppliers and consumers
// have colons, too.
bool is_hid_name(std::string_view name);

// What a file of sysfs says, without its line end: the kernel says all of it at once. Empty if
// there is none: no attribute that is there is empty. `path` may be one below `directory`.
std::string read_attribute(int directory, const std::string& path);
// The same, but nothing if it cannot be read, with errno telling why.
std::optional<std::string> try_attribute(int directory, const std::string& path);
// Whether an error means a device, or something of it, that has gone or is on its way.
bool has_gone(int error);
// The same of a device's or an interface's entry.
std::string usb_attribute(const std::string& entry, const char* name);

// The names in a directory, in their order; none if there is no such directory, nothing if they
// cannot be read.
std::optional<std::vector<std::string>> try_directory_entries(const std::string& path);
// The same; none if they cannot be read.
std::vector<std::string> directory_entries(const std::string& path);

// In the order of their numbers; sysfs lists them in none. `device` is a name such as "1-2.4",
// whose directory is open: what is read is that device's, whichever has the name by now. Nothing if
// something of one that is there cannot be read: the device would be taken for another one.
std::optional<std::vector<UsbInterface>> read_interfaces(int directory, const std::string& device);
// Their names alone, in their order; nothing, with errno telling why, if they cannot be listed.
std::optional<std::vector<std::string>> interface_names(int directory, const std::string& device);

// The kernel answers the attribute that is read here only when it is done with configuring the
// device and binding its interfaces; one that stalls that would otherwise be read with half of
// them.
void wait_until_configured(const std::string& device);

// The device's number as the daemon knows it, bus number * 1000 + device number; 0 if it has gone,
// and of whatever is no device that can be plugged in. Its name begins with the bus number.
// Nothing if it cannot be read.
std::optional<int32_t> try_usb_number(const std::string& device);
// The same; 0 if it cannot be read.
int32_t usb_number(const std::string& device);
// That of an open directory. Nothing, with errno telling why, if it cannot be read, or has gone.
std::optional<int32_t> usb_number(int directory, const std::string& device);

// The class that is reported: what the interface claims, unless that is HID and another driver than
// HID's serves it. It is its vendor's own then, whatever it says.
int32_t reported_class(const UsbInterface& interface);

// A hub is what the hub's driver serves, all of it.
bool is_hub(const std::vector<UsbInterface>& interfaces);
// Whether that driver has an interface of the device whose directory is open. If that cannot be
// told: whether the device has ports, of which nobody but that driver tells the kernel.
bool serves_hub(int directory, const std::string& interface);

// Whether what the interfaces are can be told already. A HID device without a driver is nothing
// yet: neither a keyboard, nor its vendor's own. (With other interfaces beside it there is
// something to judge in any case.)
bool is_settled(const std::vector<UsbInterface>& interfaces);

// Which interfaces there are, and what became of them, as texts to be compared with earlier ones.
std::string layout_of(const std::vector<UsbInterface>& interfaces);
std::string shape_of(const std::vector<UsbInterface>& interfaces);

}  // namespace android::vus::hotplug
