// SPDX-License-Identifier: Apache-2.0
//
// What is asked of a USB device itself, by its node. Stateless; any thread, but not one that others
// wait for: a device may take as long as it likes, up to 15 s.

#pragma once

#include <stdint.h>

#include <optional>
#include <vector>

#include "tools/hotplug/subject.h"

namespace android::vus::hotplug {

// Whether a device gives the descriptor by which the hub's driver takes it for a hub: it is asked
// as often, and waited for as long, as by that, which is 15 s at most. Nothing if it could not be
// asked, or has gone.
std::optional<bool> gives_hub_descriptor(const Subject& device);

// The report descriptor of a HID interface. The interface has to be authorized and without a
// driver, and is so again afterwards. Nothing if the device gives none, or has gone.
std::optional<std::vector<uint8_t>> read_report_descriptor(const Subject& device,
                                                           int32_t interface_number);

}  // namespace android::vus::hotplug
