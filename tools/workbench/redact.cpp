// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/redact.h"

namespace android::vus::workbench {

Device Redaction::of(Device device) {
    device.name = replaced("name", device.name);
    device.vendorName = replaced("vendor", device.vendorName);
    device.productName = replaced("name", device.productName);
    device.serial = replaced("serial", device.serial);
    return device;
}

std::string Redaction::replaced(const char* what, const std::string& text) {
    if (text.empty()) return text;
    auto& known = replacements_[what];
    const std::string next = std::string(what) + " " + std::to_string(known.size() + 1);
    return known.emplace(text, next).first->second;
}

}  // namespace android::vus::workbench
