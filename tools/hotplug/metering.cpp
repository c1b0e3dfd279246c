// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/metering.h"

#include <utility>

namespace android::vus::hotplug {

namespace {

constexpr std::chrono::seconds kPatienceWithDisks(1);

}  // namespace

Metering::Metering(const Options& options, const Print& print, const Print& notice) {
    if (!options.events.empty()) file_ = std::make_unique<EventFile>(options.events, notice);
    if (file_ == nullptr && !options.verbose) return;
    Meter::Take take;
    take.device = [this, verbose = options.verbose, print](const Exposure& exposure) {
        if (file_ != nullptr) file_->add(to_json(exposure));
        const bool over = !exposure.on || exposure.verdict == MeteredVerdict::kAllowed;
        if (verbose && over) print("meter: " + to_text(exposure));
    };
    take.events_lost = [this, notice](const Moment& when) {
        if (file_ != nullptr) file_->add(lost_events_json(when));
        notice("events were lost: what happened meanwhile is not metered");
    };
    meter_.emplace(present_moment, std::move(take));
}

void Metering::listen(Reporter::Manner* manner) {
    if (!meter_) return;
    manner->asked = [this](const Subject& device, const Sighting& seen) {
        meter_->asked(device, seen);
    };
    manner->answered = [this, others = std::move(manner->answered)](const Subject& device,
                                                                    const Sighting& seen,
                                                                    bool allowed) {
        meter_->answered(device, allowed);
        if (others) others(device, seen, allowed);
    };
}

void Metering::silenced(const std::string& input, bool silent) {
    if (meter_) meter_->silenced(input, silent);
}

void Metering::finish() {
    if (meter_) meter_->finish();
    if (file_ != nullptr) file_->flush(kPatienceWithDisks);
}

}  // namespace android::vus::hotplug
