// SPDX-License-Identifier: Apache-2.0
//
// Who a USB vendor id belongs to, by the system's own database of USB ids.

#pragma once

#include <stdint.h>

#include <memory>
#include <optional>
#include <string>

namespace android::vus::workbench {

// One thread.
class VendorNames {
  public:
    virtual ~VendorNames() = default;
    // Nothing for an id that the database does not know.
    virtual std::optional<std::string> nameOf(int32_t vendor) const = 0;
};

// The system's hardware database, through libudev. nullptr where there is none: a small container,
// an image without udev.
std::unique_ptr<VendorNames> systemVendorNames();

}  // namespace android::vus::workbench
