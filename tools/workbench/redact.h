// SPDX-License-Identifier: Apache-2.0
//
// Takes out of devices what tells whose they are: names and serial numbers. Each becomes a keyed
// hash ("serial 5fd1..."), the same for the same text wherever the key is the same, so that lists
// can be joined by them. A plain hash would let whoever has a guess confirm it; a serial number has
// few enough values to guess them all.
//
// A plain value; any number of threads may ask one.

#pragma once

#include <string>
#include <utility>

#include "tools/workbench/device.h"
#include "tools/workbench/digest.h"

namespace android::vus::workbench {

class Redaction {
  public:
    explicit Redaction(KeyedHash hash) : hash_(std::move(hash)) {}

    Device of(Device device) const;

  private:
    std::string replaced(const std::string& what, const std::string& text) const;

    const KeyedHash hash_;
};

}  // namespace android::vus::workbench
