// SPDX-License-Identifier: Apache-2.0
//
// Random policies, devices and USB trees. Values come from small pools, so that rules and devices
// meet, and hold the ends of what is possible.

#pragma once

#include <stdint.h>

#include <random>
#include <string>
#include <vector>

#include "reference.h"

namespace reference {

// VUS_MODEL_SEED, or a new one.
uint64_t Seed();

std::string ToXml(const PolicyFile& file);
std::string ToText(const Device& device);

class RandomWorld {
  public:
    explicit RandomWorld(uint64_t seed) : random_(seed) {}

    PolicyFile NextPolicy();
    // A device of which some are in the tree.
    Device NextDevice(const std::vector<Attached>& tree);
    std::vector<Attached> NextTree();
    // True `percent` of the time.
    bool Sometimes(int percent) { return Below(100) < percent; }
    int Below(int limit) { return static_cast<int>(random_() % static_cast<uint64_t>(limit)); }

  private:
    template <typename T>
    T OneOf(std::initializer_list<T> values) {
        return values.begin()[Below(static_cast<int>(values.size()))];
    }

    std::string NextNumber();
    Rule NextRule();
    Rule NextVendorRule();
    Interface NextInterface(const std::string& name);

    std::mt19937_64 random_;
};

}  // namespace reference
