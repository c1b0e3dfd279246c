// SPDX-License-Identifier: Apache-2.0
//
// The smallest policy that admits the devices of a list and as little else as the format can say:
// a whitelist of their products. Classes and whole vendors would admit strangers, and a whole
// vendor opens each vendor below it that is listed with products.
//
// A Learner owns what it has seen: memory grows with the number of different products, not with the
// number of devices. One thread.

#pragma once

#include <stddef.h>
#include <stdint.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <json/value.h>

#include "tools/workbench/device.h"

namespace android::vus::workbench {

struct LearntPolicy {
    std::string text;
    std::vector<std::string> warnings;  // what it cannot separate, or cannot admit
    bool complete = true;               // it admits every device that was seen
};

// For programs.
Json::Value toJson(const LearntPolicy& learnt);

class Learner {
  public:
    void see(const Device& device);

    // The policy, confirmed by the daemon's own reading and judgement.
    LearntPolicy learn() const;

  private:
    using Ids = std::pair<int32_t, int32_t>;
    struct Product {
        std::set<std::string> names;       // as many as a comment shows
        std::set<std::string> usb_claims;  // the different USB devices that claim these ids
        size_t devices = 0;
    };

    std::string write() const;
    bool confirm(const std::string& text) const;
    void warn(std::vector<std::string>* warnings) const;

    std::map<Ids, Product> products_;
    size_t devices_ = 0;
    size_t left_to_input_ = 0;
    std::vector<Device> samples_;  // one of each claim, to be judged in the end
    std::vector<std::string> inexpressible_;
};

}  // namespace android::vus::workbench
