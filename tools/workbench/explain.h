// SPDX-License-Identifier: Apache-2.0
//
// Why a policy admits or refuses a device: the daemon's own judgement, told step by step, and for a
// refusal the smallest changes of the policy that would admit it, each confirmed by that judgement,
// with what else it would admit.
//
// An Explainer holds on to its policy, which has to outlive it. Any number of threads may ask one.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include <json/value.h>

#include "android/vus/judge.h"
#include "android/vus/policy.h"
#include "tools/workbench/device.h"

namespace android::vus::workbench {

// A change that would admit a device.
struct Remedy {
    std::string change;  // "add <class>USB_CLASS_AUDIO</class>", "remove line 4"
    std::string also;    // what else it would admit
};

struct Explanation {
    Device device;
    Screening screening = Screening::kJudged;
    Judgement judgement;            // what the policy says once it is asked
    std::vector<std::string> walk;  // what was looked at, a line each
    std::vector<Remedy> remedies;

    // "allowed", "refused", or "input" for what is left to the input subsystem.
    const char* verdict() const;
};

class Explainer {
  public:
    explicit Explainer(const Policy& policy);

    Explanation explain(const Device& device) const;

  private:
    const Policy& policy_;
    Policy frame_;                             // the mode, and each class once
    std::optional<VendorRule> highest_whole_;  // the highest vendor that is listed whole
    std::vector<int32_t> closed_vendors_;      // the vendors above it, ascending
};

// Why the policy is not asked, or perhaps not, in words; of a device that is judged, nothing.
std::string screeningText(Screening screening);

// For people, lines of at most 80 characters.
std::string toText(const Explanation& explanation);
Json::Value toJson(const Explanation& explanation);

}  // namespace android::vus::workbench
