// SPDX-License-Identifier: Apache-2.0
//
// The devices of a machine, as the reporting component would report them, read from its sysfs: this
// machine's, or a recorded tree below any directory. Hubs are left out, as there; so are input
// devices that are none of the platform's sources, of which some would be asked about. Nothing is
// written. A device that goes, or answers nothing, while it is read is left out as well.

#pragma once

#include <functional>
#include <string>

#include "tools/workbench/device.h"

namespace android::vus::workbench {

inline constexpr char kLiveTree[] = "/sys";

// Calls `take` with each device, USB devices first, both in the order of their ids. `dir` is a
// sysfs, or what holds one as "sys". Returns what is wrong; an empty text if nothing is.
std::string readTree(const std::string& dir, const std::function<void(Device)>& take);

}  // namespace android::vus::workbench
