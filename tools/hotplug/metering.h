// SPDX-License-Identifier: Apache-2.0
//
// The meter of a reporter that runs, with those to whom it tells what it has seen.

#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "tools/hotplug/event_file.h"
#include "tools/hotplug/meter.h"
#include "tools/hotplug/options.h"
#include "tools/hotplug/reporter.h"

namespace android::vus::hotplug {

// Thread-safe.
class Metering {
  public:
    using Print = std::function<void(const std::string&)>;

    // Nothing is metered unless somebody wants to know. `print` gets a line for people for each
    // device whose exposure is over, `notice` one when the file does not take what it should.
    Metering(const Options& options, const Print& print, const Print& notice);

    // Null if nothing is metered.
    Meter* meter() { return meter_ ? &*meter_ : nullptr; }
    // Has the meter hear what a reporter asks and is answered, besides who hears that already.
    void listen(Reporter::Manner* manner);
    // What the switches are to tell (see SysfsSwitches).
    void silenced(const std::string& input, bool silent);
    // Tells what was not told yet. A disk that does not answer is not waited for long.
    void finish();

  private:
    std::unique_ptr<EventFile> file_;
    std::optional<Meter> meter_;
};

}  // namespace android::vus::hotplug
