// SPDX-License-Identifier: Apache-2.0
//
// A look at everything that is present: at the start, and whenever something may have been missed.
// Keeps nothing, and waits for no device; for the thread that the tracker belongs to.

#pragma once

#include "tools/hotplug/gate.h"
#include "tools/hotplug/meter.h"
#include "tools/hotplug/reporter.h"
#include "tools/hotplug/tracker.h"

namespace android::vus::hotplug {

// Has each device that is there judged, and takes every other one for gone. But if what is there
// cannot all be told, nobody is, and the reporter is to look again later. `gate` and `meter` may be
// null.
void look_around(Ask when, Tracker* tracker, Reporter* reporter, Gate* gate, Meter* meter);

}  // namespace android::vus::hotplug
