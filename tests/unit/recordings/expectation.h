// SPDX-License-Identifier: Apache-2.0
//
// What the map must hold for a tree, found out in another way than the product's: from whole files
// through the standard library, entry by entry, without a topology.

#pragma once

#include <stdint.h>

#include <string>
#include <tuple>
#include <vector>

#include "android/vus/usbdevice.h"

namespace android::vus {

struct ExpectedRecord {
    int32_t id = 0;
    std::string name;
    uint32_t code = 0;
    uint32_t subclass = 0;
    uint32_t protocol = 0;
    uint32_t number = 0;
    int32_t busnum = 0;
    int32_t devnum = 0;
    uint32_t vendor = 0;
    uint32_t product = 0;
    std::string manufacturer;
    std::string product_name;
    int32_t category = 0;
    std::string category_path;

    auto tie() const {
        return std::tie(id, name, code, subclass, protocol, number, busnum, devnum, vendor, product,
                        manufacturer, product_name, category, category_path);
    }
    bool operator==(const ExpectedRecord& other) const { return tie() == other.tie(); }
};

// For messages of failed assertions.
std::ostream& operator<<(std::ostream& out, const ExpectedRecord& record);

// A record of the product's in the form of an expected one.
ExpectedRecord FromMap(int32_t id, const usbinterface_custom& record);

// What the tree below /sys must give, in map order.
std::vector<ExpectedRecord> ExpectedMap();

// The names in the directory of USB devices, in the order in which it lists them.
std::vector<std::string> ListedEntries();
bool IsDeviceName(const std::string& entry);
bool IsInterfaceName(const std::string& entry);
// The device that an interface belongs to: 1-2.4 of 1-2.4:1.0.
std::string DeviceOf(const std::string& interface);
// The hub that a device hangs on if that is not a root hub, else an empty text.
std::string ParentOf(const std::string& device);
// The driver that is bound to an entry, or an empty text.
std::string DriverOf(const std::string& entry);

}  // namespace android::vus
