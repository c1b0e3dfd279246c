// SPDX-License-Identifier: Apache-2.0
//
// A device that is known: attached here, read from a list, or described in words. All of it is the
// device's own claim. A plain value; any thread may read one that nobody changes.

#pragma once

#include <stdint.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "android/vus/judge.h"

namespace android::vus::workbench {

enum class DeviceType { kUsb = 0, kInput = 1 };

struct Device {
    DeviceType type = DeviceType::kUsb;
    Claim claim;
    // Of a USB device: whether it is an HID without input events. Unknown of one that is only
    // described.
    std::optional<bool> vendorHid;
    std::optional<int32_t> id;  // as the daemon's list numbers it
    std::string name;           // as the daemon's list calls it; may hold anything
    // What the device calls itself; empty where that is not known.
    std::string vendorName;
    std::string productName;
    std::string serial;
};

bool operator==(const Device& one, const Device& other);

// What the daemon does with a device before it asks the policy.
enum class Screening {
    kJudged,       // the policy decides
    kLeftToInput,  // a USB device with nothing but HID interfaces: answered "no", nothing is
                   // switched off, and its input devices are judged
    kUnknown,      // the same, unless the device is a vendor's own HID, which nobody has said
};
Screening screeningOf(const Device& device);

// "0951:1666"; ids beyond 16 bits with as many digits as they need.
std::string idPair(int32_t vendor, int32_t product);

// The classes of the interfaces, or the sources, as they are listed: "8,255", "none", "0x101".
std::string classesOf(const Device& device);

// For people, on one line, fit for a terminal: usb 0951:1666 interfaces 8,255 "Flash Disk"
std::string describe(const Device& device);

// The options that describe the device to vusctl: --vid 0x0951 --pid 0x1666 --interfaces 8,255
std::string optionsOf(const Device& device);

// Decimal, or hexadecimal with "0x". Nothing for any other text, or one that does not fit.
std::optional<int32_t> parseNumber(std::string_view text);

// The device that such options describe; of an option that is given twice the last one counts.
// With a wrong word, nothing, and `error` says what is wrong.
std::optional<Device> parseDevice(const std::vector<std::string>& words, std::string* error);

}  // namespace android::vus::workbench
