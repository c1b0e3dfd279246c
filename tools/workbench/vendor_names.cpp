// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/vendor_names.h"

#if __has_include(<libudev.h>)

#include <libudev.h>
#include <stdio.h>

namespace android::vus::workbench {

namespace {

constexpr char kVendorName[] = "ID_VENDOR_FROM_DATABASE";

struct Release {
    void operator()(udev* context) const { udev_unref(context); }
    void operator()(udev_hwdb* database) const { udev_hwdb_unref(database); }
};

class HardwareDatabase final : public VendorNames {
  public:
    HardwareDatabase() : udev_(udev_new()), database_(udev_hwdb_new(udev_.get())) {}

    bool usable() const { return database_ != nullptr; }

    std::optional<std::string> nameOf(int32_t vendor) const override {
        char alias[sizeof("usb:v12345678p")];
        snprintf(alias, sizeof(alias), "usb:v%04Xp", static_cast<uint32_t>(vendor));
        udev_list_entry* const all =
                udev_hwdb_get_properties_list_entry(database_.get(), alias, /*flags=*/0);
        udev_list_entry* const name = udev_list_entry_get_by_name(all, kVendorName);
        if (name == nullptr) return std::nullopt;
        return udev_list_entry_get_value(name);
    }

  private:
    const std::unique_ptr<udev, Release> udev_;
    const std::unique_ptr<udev_hwdb, Release> database_;
};

}  // namespace

std::unique_ptr<VendorNames> systemVendorNames() {
    auto database = std::make_unique<HardwareDatabase>();
    if (!database->usable()) return nullptr;
    return database;
}

}  // namespace android::vus::workbench

#else  // an Android image has no udev

namespace android::vus::workbench {

std::unique_ptr<VendorNames> systemVendorNames() {
    return nullptr;
}

}  // namespace android::vus::workbench

#endif
