// SPDX-License-Identifier: Apache-2.0
//
// A world small enough to look at every device in it: random policies over a few ids and classes,
// and all devices that can be told apart by such a policy. Whatever the analyser says of all
// devices has to be true of these, and whatever is true of these it has to say.

#pragma once

#include <random>
#include <string>
#include <vector>

#include "android/vus/judge.h"

namespace android::vus::workbench {

// Beyond the end of what a device can have, but not of what a rule may say.
inline constexpr int32_t kImpossibleId = 65536;

class SmallWorld {
  public:
    explicit SmallWorld(uint64_t seed) : random_(seed) {}

    // A policy file, a rule a line. Ids are from both ends of what is possible, and beyond.
    std::string nextText();
    // One as a careful administrator writes it: a whitelist of products.
    std::string nextCarefulText();
    Policy nextPolicy();
    // One that differs from `policy` in a rule or two.
    Policy nextNeighbour(const Policy& policy);

    size_t below(size_t limit) { return random_() % limit; }

    // Every device: all ids with all sets of interfaces and of sources. No rule names vendor 0 or
    // product 3, the classes 4 and 7, or the source AINPUT_SOURCE_DPAD.
    static const std::vector<Claim>& devices();
    static const std::vector<int32_t>& vendors();
    static const std::vector<int32_t>& products();

  private:
    template <typename T>
    const T& oneOf(const std::vector<T>& values) {
        return values[below(values.size())];
    }
    std::string nextRule();

    std::mt19937_64 random_;
};

// The policy of a text that is one.
Policy policyOf(const std::string& text);

// The verdicts on all devices of the small world, in their order.
std::vector<bool> verdictsOf(const Policy& policy);

}  // namespace android::vus::workbench
