// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/redact.h"

namespace android::vus::workbench {

Device Redaction::of(Device device) const {
    device.name = replaced("name", device.name);
    device.vendorName = replaced("vendor", device.vendorName);
    device.productName = replaced("name", device.productName);
    device.serial = replaced("serial", device.serial);
    return device;
}

// What it is goes into the hash: a device that calls itself by its serial number does not tell so.
std::string Redaction::replaced(const std::string& what, const std::string& text) const {
    if (text.empty()) return text;
    return what + " " + hash_.of(what + " " + text);
}

}  // namespace android::vus::workbench
