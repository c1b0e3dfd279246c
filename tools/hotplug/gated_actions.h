// SPDX-License-Identifier: Apache-2.0
//
// What a reporter does with events where a gate holds devices back: each device is let in as far as
// it may be, and then reported as what it is, or as what it would be.

#pragma once

#include <functional>

#include "tools/hotplug/gate.h"
#include "tools/hotplug/reporter.h"
#include "tools/hotplug/tracker.h"

namespace android::vus::hotplug {

// Both outlive the actions. `report_present` reports everything that is present, if it has changed.
Tracker::Actions gated_actions(Gate* gate, Reporter* reporter,
                               std::function<void()> report_present);

}  // namespace android::vus::hotplug
