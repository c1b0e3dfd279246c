// SPDX-License-Identifier: Apache-2.0
//
// The daemon's list against what the kernel says: is what was refused switched off, and is what is
// attached known? Reads a sysfs; writes nothing. Stateless; any thread.

#pragma once

#include <string>
#include <vector>

#include "tools/workbench/device.h"

namespace android::vus::workbench {

struct ListedDevice {
    Device device;
    bool allowed;
};

struct Mismatch {
    Device device;
    std::string what;  // "refused, but 1-2:1.0 is bound to usb-storage"
};

// Every difference between the list and the sysfs `root`, in the order of the list, what is not in
// it last. Input devices are not switched off by the daemon: of them only the presence is compared.
std::vector<Mismatch> verify(const std::vector<ListedDevice>& listed, const std::string& root);

}  // namespace android::vus::workbench
